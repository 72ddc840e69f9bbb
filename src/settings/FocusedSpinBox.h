#pragma once

#include <QSpinBox>

namespace murmurly {

// A spin box that a mouse-wheel turn changes only while it has the keyboard focus: scrolling a
// page past it scrolls the page and leaves the value alone. It takes the focus from a click or
// Tab, never from the wheel.
class FocusedSpinBox : public QSpinBox {
    Q_OBJECT

public:
    explicit FocusedSpinBox(QWidget* parent = nullptr);

protected:
    void wheelEvent(QWheelEvent* event) override;
};

} // namespace murmurly
