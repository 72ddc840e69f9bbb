#pragma once

#include "hotkey/HotkeyBinding.h"
#include "hotkey/KeyEvent.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <optional>

namespace murmurly {

// Receives every key event on the source's reader thread. Must not block and should not allocate:
// the answer says whether the event is to be swallowed.
class KeyEventSink {
public:
    virtual ~KeyEventSink() = default;
    virtual bool keyEvent(KeyEvent::Type type, std::uint16_t keyCode, std::uint64_t flags) = 0;
};

// The keys that must not reach the focused application. Sources that can only swallow by grabbing
// keys in advance (X11) act on this; sources that decide per event may ignore it.
struct SwallowedKeys {
    std::optional<std::uint16_t> boundKey; // the key of a key binding (modifiers are never swallowed)
    bool escape = false;                   // Esc, while a cancel is armed

    friend bool operator==(const SwallowedKeys&, const SwallowedKeys&) = default;
};

// System-wide keyboard events in the canonical key-code space, read on a thread of the source's
// own.
class KeyEventSource {
public:
    virtual ~KeyEventSource() = default;

    // Starts reading and delivering to `sink`; false when the keyboard cannot be watched.
    virtual bool start(KeyEventSink& sink) = 0;
    // Stops reading; the sink is not called again once this returns. Safe when not running.
    virtual void stop() = 0;
    // False once stopped, or when the source lost its connection to the keyboard.
    virtual bool isRunning() const = 0;
    // Called on the main thread whenever the keys to swallow change.
    virtual void setSwallowedKeys(const SwallowedKeys& keys) = 0;

    // Called on the main thread with the trigger the user chose, before start() and whenever it
    // changes. Sources that ask the desktop for the key (a shortcuts portal) ask for this one.
    virtual void setBinding(const HotkeyBinding&) {}
    // The trigger as the desktop assigned it, in the desktop's words, where the desktop rather than
    // the program decides the key; nothing where the chosen binding is read as it stands.
    virtual std::optional<QString> assignedTrigger() const { return std::nullopt; }
    // Called on the main thread after each change of assignedTrigger().
    virtual void setAssignmentObserver(std::function<void()>) {}
};

} // namespace murmurly
