#pragma once

#include <QCoro/QCoroTask>

#include <chrono>

namespace murmurly {

// The window the user was working in before one of the program's own windows took the keyboard
// focus. Text the program pastes on the user's behalf from its own window (a history entry put in
// again) belongs there, not in the program's window. Main thread only.
class FocusReturn {
public:
    virtual ~FocusReturn() = default;

    // Notes the window that has the keyboard focus now, unless it is one of the program's own or
    // nothing has the focus; then the window noted before is kept.
    virtual void rememberFocusedWindow() = 0;

    // Gives the keyboard focus back to the noted window and waits, at most `limit`, until it has
    // left the program's windows. False when no window was noted, it is gone, or the focus stayed.
    virtual QCoro::Task<bool> returnFocus(std::chrono::milliseconds limit) = 0;
};

} // namespace murmurly
