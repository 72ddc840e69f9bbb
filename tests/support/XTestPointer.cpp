#include "XTestPointer.h"

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>

#include <cstdlib>

namespace murmurly::testing {

XTestPointer::XTestPointer(const QByteArray& displayName)
    : m_display(XOpenDisplay(displayName.isEmpty() ? nullptr : displayName.constData())) {
}

XTestPointer::~XTestPointer() {
    if (m_display) XCloseDisplay(m_display);
}

void XTestPointer::moveTo(int x, int y) {
    if (!m_display) return;
    XTestFakeMotionEvent(m_display, -1, x, y, CurrentTime);
    XSync(m_display, False);
}

void XTestPointer::pressAndRelease(unsigned int button) {
    if (!m_display) return;
    XTestFakeButtonEvent(m_display, button, True, CurrentTime);
    XTestFakeButtonEvent(m_display, button, False, CurrentTime);
    XSync(m_display, False);
}

void XTestPointer::click() {
    pressAndRelease(Button1);
}

void XTestPointer::turnWheel(int steps) {
    // X reports the wheel as buttons 4 (up) and 5 (down).
    for (int i = 0; i < std::abs(steps); ++i)
        pressAndRelease(steps > 0 ? Button4 : Button5);
}

} // namespace murmurly::testing
