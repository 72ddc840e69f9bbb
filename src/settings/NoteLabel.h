#pragma once

#include <QLabel>

namespace murmurly {

// An explanatory text under a control: wrapped to the width of its column, a step smaller than
// the body text, in the secondary text colour.
class NoteLabel : public QLabel {
    Q_OBJECT

public:
    explicit NoteLabel(const QString& text, QWidget* parent = nullptr);

    // The secondary text colour of `palette`: the body colour, faded.
    static QColor secondaryColor(const QPalette& palette);

protected:
    void changeEvent(QEvent* event) override;

private:
    void applyStyle();
};

} // namespace murmurly
