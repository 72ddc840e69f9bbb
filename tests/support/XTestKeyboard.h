#pragma once

#include <QByteArray>

struct _XDisplay;

namespace murmurly::testing {

// A keyboard the test types on: real key events made by the X server's XTest extension, as if a
// person pressed the keys. Keys are named by keysym (X11/keysym.h).
class XTestKeyboard {
public:
    // An empty display name means the DISPLAY of the environment.
    explicit XTestKeyboard(const QByteArray& displayName = {});
    ~XTestKeyboard();
    XTestKeyboard(const XTestKeyboard&) = delete;
    XTestKeyboard& operator=(const XTestKeyboard&) = delete;

    bool isOpen() const { return m_display != nullptr; }

    // Each call reaches the server before it returns.
    void press(unsigned long keysym);
    void release(unsigned long keysym);
    void tap(unsigned long keysym);
    // Whether the server's keyboard has this key down.
    bool isDown(unsigned long keysym) const;

private:
    unsigned char keyCode(unsigned long keysym) const;
    void send(unsigned long keysym, bool down);

    _XDisplay* m_display = nullptr;
};

} // namespace murmurly::testing
