#pragma once

#include <QByteArray>

struct _XDisplay;

namespace murmurly::testing {

// A mouse the test moves, clicks and turns the wheel of: real pointer events made by the X
// server's XTest extension, as a person's mouse would make them.
class XTestPointer {
public:
    // An empty display name means the DISPLAY of the environment.
    explicit XTestPointer(const QByteArray& displayName = {});
    ~XTestPointer();
    XTestPointer(const XTestPointer&) = delete;
    XTestPointer& operator=(const XTestPointer&) = delete;

    bool isOpen() const { return m_display != nullptr; }

    // Each call reaches the server before it returns. Positions are in screen pixels.
    void moveTo(int x, int y);
    void click(); // the left button
    // One wheel notch per step: positive turns away from the user (up), negative towards.
    void turnWheel(int steps);

private:
    void pressAndRelease(unsigned int button);

    _XDisplay* m_display = nullptr;
};

} // namespace murmurly::testing
