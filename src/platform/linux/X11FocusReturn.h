#pragma once

#include "core/Clock.h"
#include "core/FocusReturn.h"

#include <QByteArray>

struct _XDisplay;

namespace murmurly {

// The focus handed back on an X display: through the window manager (_NET_ACTIVE_WINDOW, which
// also raises the window) when one is running, else with the X server's own focus call. The
// program's own windows are told apart by their _NET_WM_PID. Uses its own display connection.
class X11FocusReturn final : public FocusReturn {
public:
    // An empty display name means the DISPLAY of the environment.
    explicit X11FocusReturn(Clock& clock, QByteArray displayName = {});
    ~X11FocusReturn() override;
    X11FocusReturn(const X11FocusReturn&) = delete;
    X11FocusReturn& operator=(const X11FocusReturn&) = delete;

    void rememberFocusedWindow() override;
    QCoro::Task<bool> returnFocus(std::chrono::milliseconds limit) override;

    // The noted window's id; 0 when none.
    unsigned long rememberedWindow() const { return m_remembered; }

private:
    _XDisplay* display();
    // The focused top-level window when it is not one of this program's; 0 otherwise.
    unsigned long focusedOtherWindow();
    bool isOwnWindow(unsigned long window);
    bool windowExists(unsigned long window);
    bool windowManagerActivates();

    Clock& m_clock;
    QByteArray m_displayName;
    _XDisplay* m_display = nullptr;
    unsigned long m_remembered = 0;
};

} // namespace murmurly
