#pragma once

#include <QString>

#include <functional>

namespace murmurly {

// The desktop's notification bubbles. Each slot shows at most one notification: showing again
// replaces what the slot showed, so notices never pile up.
class Notifications {
public:
    enum class Slot {
        // What the menu would say: the first-start notice, a new problem, a failed model. It
        // carries an action that opens the settings where the desktop supports actions.
        message,
        // Shown while a recording runs and withdrawn when it ends; transient, so that desktops
        // keep no record of it.
        recording,
    };

    virtual ~Notifications() = default;

    // Shows `body` in `slot` (under the program's name). `delivered` runs once the desktop took it,
    // and never when there is no notification service.
    virtual void show(Slot slot, const QString& body, std::function<void()> delivered = {}) = 0;
    // Takes the slot's notification away; nothing happens when it shows none.
    virtual void withdraw(Slot slot) = 0;

    // Runs when the user activates a message (clicks it, or chooses its action).
    std::function<void()> onActivated;
};

} // namespace murmurly
