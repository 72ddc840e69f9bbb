#pragma once

#include "hotkey/KeyState.h"
#include "platform/linux/X11Keymap.h"

#include <QByteArray>

struct _XDisplay;

namespace murmurly {

// The live keyboard of an X server (XQueryKeymap), asked in canonical key codes. Used on the main
// thread, on a connection of its own opened at the first question.
class X11KeyState final : public KeyState {
public:
    // An empty display name means the DISPLAY of the environment.
    explicit X11KeyState(QByteArray displayName = {});
    ~X11KeyState() override;
    X11KeyState(const X11KeyState&) = delete;
    X11KeyState& operator=(const X11KeyState&) = delete;

    // False as well when the server cannot be reached.
    bool isKeyDown(std::int64_t keyCode) const override;

private:
    QByteArray m_displayName;
    mutable _XDisplay* m_display = nullptr;
    mutable X11Keymap m_keymap;
};

} // namespace murmurly
