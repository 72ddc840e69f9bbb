#pragma once

#include "hotkey/KeyEvent.h"

#include <optional>

class QKeyEvent;

namespace murmurly {

// Turns a key event of the program's own windows into the canonical key event the binding rules
// read: canonical key code, the characters the key types without modifiers, and modifier flags.
// Modifier keys come out as flag changes, the flags holding the key's own bit while it is down.
class KeyEventTranslator {
public:
    virtual ~KeyEventTranslator() = default;

    // Nothing for keys outside the canonical key space.
    virtual std::optional<KeyEvent> translate(const QKeyEvent& event) const = 0;
};

} // namespace murmurly
