#pragma once

#include <QLabel>

namespace murmurly {

// An explanatory text under a control: wrapped to the width of its column, in the settings
// window's caption style (smaller, in the secondary text colour).
class NoteLabel : public QLabel {
    Q_OBJECT

public:
    explicit NoteLabel(const QString& text, QWidget* parent = nullptr);

    // The secondary text colour of `palette`, for text drawn without a label.
    static QColor secondaryColor(const QPalette& palette);
};

} // namespace murmurly
