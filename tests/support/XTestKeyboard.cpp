#include "XTestKeyboard.h"

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>

namespace murmurly::testing {

XTestKeyboard::XTestKeyboard(const QByteArray& displayName)
    : m_display(XOpenDisplay(displayName.isEmpty() ? nullptr : displayName.constData())) {
}

XTestKeyboard::~XTestKeyboard() {
    if (m_display) XCloseDisplay(m_display);
}

unsigned char XTestKeyboard::keyCode(unsigned long keysym) const {
    return m_display ? XKeysymToKeycode(m_display, keysym) : 0;
}

void XTestKeyboard::send(unsigned long keysym, bool down) {
    const unsigned char code = keyCode(keysym);
    if (!code) return;
    XTestFakeKeyEvent(m_display, code, down ? True : False, CurrentTime);
    XSync(m_display, False);
}

void XTestKeyboard::press(unsigned long keysym) {
    send(keysym, true);
}

void XTestKeyboard::release(unsigned long keysym) {
    send(keysym, false);
}

void XTestKeyboard::tap(unsigned long keysym) {
    press(keysym);
    release(keysym);
}

bool XTestKeyboard::isDown(unsigned long keysym) const {
    const unsigned char code = keyCode(keysym);
    if (!code) return false;
    char keys[32] = {};
    XQueryKeymap(m_display, keys);
    return (keys[code / 8] >> (code % 8)) & 1;
}

} // namespace murmurly::testing
