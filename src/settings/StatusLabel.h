#pragma once

#include <QString>
#include <QWidget>

class QLabel;

namespace murmurly {

// A line of text led by a small symbol drawn in the line's colour: a filled circle with a check
// mark (success, green), with a cross (failure, red), an exclamation mark (warning, amber), or a
// key (secondary text colour). The text wraps; the symbol stays on the first line.
class StatusLabel : public QWidget {
    Q_OBJECT

public:
    enum class Kind { success, failure, warning, key };

    explicit StatusLabel(QWidget* parent = nullptr);
    StatusLabel(Kind kind, const QString& text, QWidget* parent = nullptr);

    void setStatus(Kind kind, const QString& text);
    Kind kind() const { return m_kind; }
    QString text() const;

    // The colour each kind is drawn in, against this palette.
    static QColor colorFor(Kind kind, const QPalette& palette);

protected:
    void changeEvent(QEvent* event) override;

private:
    void redraw();

    QLabel* m_icon;
    QLabel* m_text;
    Kind m_kind = Kind::success;
};

} // namespace murmurly
