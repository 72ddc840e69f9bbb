#include "settings/FocusedSpinBox.h"

#include <QWheelEvent>

namespace murmurly {

FocusedSpinBox::FocusedSpinBox(QWidget* parent)
    : QSpinBox(parent) {
    setFocusPolicy(Qt::StrongFocus);
}

void FocusedSpinBox::wheelEvent(QWheelEvent* event) {
    if (!hasFocus()) {
        event->ignore(); // on to the parent, which scrolls
        return;
    }
    QSpinBox::wheelEvent(event);
}

} // namespace murmurly
