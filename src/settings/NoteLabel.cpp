#include "settings/NoteLabel.h"

#include <QApplication>
#include <QEvent>

namespace murmurly {

NoteLabel::NoteLabel(const QString& text, QWidget* parent)
    : QLabel(text, parent) {
    setWordWrap(true);
    setTextFormat(Qt::PlainText);
    setTextInteractionFlags(Qt::TextSelectableByMouse);
    QFont smaller = font();
    if (smaller.pointSizeF() > 0) smaller.setPointSizeF(smaller.pointSizeF() - 1);
    setFont(smaller);
    applyStyle();
}

QColor NoteLabel::secondaryColor(const QPalette& palette) {
    const QColor text = palette.color(QPalette::Active, QPalette::WindowText);
    const QColor window = palette.color(QPalette::Active, QPalette::Window);
    // Two thirds of the way from the background to the text: readable, yet clearly secondary.
    const auto mix = [](float from, float to) { return from + (to - from) * 0.65f; };
    return QColor::fromRgbF(mix(window.redF(), text.redF()), mix(window.greenF(), text.greenF()),
                            mix(window.blueF(), text.blueF()));
}

void NoteLabel::changeEvent(QEvent* event) {
    QLabel::changeEvent(event);
    if (event->type() == QEvent::ApplicationPaletteChange) applyStyle();
}

void NoteLabel::applyStyle() {
    // Only the text role is set, so every other role still follows the parent.
    QPalette own;
    own.setColor(QPalette::WindowText, secondaryColor(QApplication::palette(this)));
    setPalette(own);
}

} // namespace murmurly
