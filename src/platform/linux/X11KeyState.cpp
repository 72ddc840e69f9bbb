#include "platform/linux/X11KeyState.h"

#include <X11/Xlib.h>

namespace murmurly {

X11KeyState::X11KeyState(QByteArray displayName)
    : m_displayName(std::move(displayName)) {
}

X11KeyState::~X11KeyState() {
    if (m_display) XCloseDisplay(m_display);
}

bool X11KeyState::isKeyDown(std::int64_t keyCode) const {
    if (keyCode < 0 || keyCode > 0xFFFF) return false;
    if (!m_display) m_display = XOpenDisplay(m_displayName.isEmpty() ? nullptr : m_displayName.constData());
    if (!m_display) return false;
    // Read afresh each time: the user may have switched layouts since.
    m_keymap.load(m_display);
    char keys[32] = {};
    XQueryKeymap(m_display, keys);
    for (unsigned char code : m_keymap.xKeyCodes(static_cast<std::uint16_t>(keyCode)))
        if ((keys[code / 8] >> (code % 8)) & 1) return true;
    return false;
}

} // namespace murmurly
