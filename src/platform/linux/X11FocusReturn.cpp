#include "platform/linux/X11FocusReturn.h"

#include "core/Log.h"
#include "platform/linux/X11FocusedWindow.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <unistd.h>

namespace murmurly {

namespace {

constexpr std::chrono::milliseconds pollInterval{10};

// Xlib's default error handler ends the process, and the noted window may have been closed at any
// moment: requests about it run with this trap, which only notes that one failed.
class XErrorTrap {
public:
    explicit XErrorTrap(Display* display)
        : m_display(display) {
        XSync(m_display, False);
        s_failed = false;
        m_previous = XSetErrorHandler(&XErrorTrap::note);
    }
    ~XErrorTrap() {
        XSync(m_display, False);
        XSetErrorHandler(m_previous);
    }
    XErrorTrap(const XErrorTrap&) = delete;
    XErrorTrap& operator=(const XErrorTrap&) = delete;

    // Whether a request since the trap was set failed (waits for the server's answers).
    bool failed() {
        XSync(m_display, False);
        return s_failed;
    }

private:
    static int note(Display*, XErrorEvent*) {
        s_failed = true;
        return 0;
    }

    static inline bool s_failed = false;
    Display* m_display;
    XErrorHandler m_previous = nullptr;
};

std::optional<unsigned long> cardinalProperty(Display* display, Window window, const char* name) {
    const Atom property = XInternAtom(display, name, True);
    if (property == None) return std::nullopt;
    Atom type = None;
    int format = 0;
    unsigned long count = 0;
    unsigned long after = 0;
    unsigned char* data = nullptr;
    std::optional<unsigned long> value;
    if (XGetWindowProperty(display, window, property, 0, 1, False, XA_CARDINAL, &type, &format, &count,
                           &after, &data) == Success &&
        data) {
        if (type == XA_CARDINAL && format == 32 && count == 1)
            value = *reinterpret_cast<unsigned long*>(data);
        XFree(data);
    }
    return value;
}

} // namespace

X11FocusReturn::X11FocusReturn(Clock& clock, QByteArray displayName)
    : m_clock(clock)
    , m_displayName(std::move(displayName)) {
}

X11FocusReturn::~X11FocusReturn() {
    if (m_display) XCloseDisplay(m_display);
}

_XDisplay* X11FocusReturn::display() {
    if (!m_display) m_display = XOpenDisplay(m_displayName.isEmpty() ? nullptr : m_displayName.constData());
    return m_display;
}

void X11FocusReturn::rememberFocusedWindow() {
    if (const unsigned long window = focusedOtherWindow()) m_remembered = window;
}

QCoro::Task<bool> X11FocusReturn::returnFocus(std::chrono::milliseconds limit) {
    Display* const x = display();
    if (!x || m_remembered == 0) co_return false;
    if (!windowExists(m_remembered)) {
        qCInfo(lcApp, "The window to give the focus back to is gone");
        m_remembered = 0;
        co_return false;
    }
    const Window target = m_remembered;
    {
        XErrorTrap trap(x);
        if (windowManagerActivates()) {
            // A request as a pager or taskbar makes it: window managers may refuse applications
            // that ask to activate another client's window.
            XEvent event{};
            event.xclient.type = ClientMessage;
            event.xclient.window = target;
            event.xclient.message_type = XInternAtom(x, "_NET_ACTIVE_WINDOW", False);
            event.xclient.format = 32;
            event.xclient.data.l[0] = 2; // source: pager
            event.xclient.data.l[1] = CurrentTime;
            XSendEvent(x, DefaultRootWindow(x), False, SubstructureRedirectMask | SubstructureNotifyMask,
                       &event);
        } else {
            XSetInputFocus(x, target, RevertToParent, CurrentTime);
        }
        if (trap.failed()) {
            qCWarning(lcApp, "Could not give the focus back to window 0x%lx", target);
            co_return false;
        }
    }
    // The server and the window manager act on their own time: look until the focus has left
    // this program's windows, within the limit.
    const Clock::TimePoint deadline = m_clock.now() + limit;
    for (;;) {
        if (focusedOtherWindow() != 0) co_return true;
        if (m_clock.now() >= deadline) break;
        co_await m_clock.sleep(pollInterval);
    }
    qCWarning(lcApp, "The focus did not move to window 0x%lx within %lld ms", target,
              static_cast<long long>(limit.count()));
    co_return false;
}

unsigned long X11FocusReturn::focusedOtherWindow() {
    Display* const x = display();
    if (!x) return 0;
    std::optional<X11FocusedWindow> focused;
    {
        XErrorTrap trap(x);
        focused = X11FocusedWindow::find(x);
        if (trap.failed()) return 0;
    }
    if (!focused || isOwnWindow(focused->window)) return 0;
    return focused->window;
}

bool X11FocusReturn::isOwnWindow(unsigned long window) {
    XErrorTrap trap(m_display);
    const std::optional<unsigned long> pid = cardinalProperty(m_display, window, "_NET_WM_PID");
    return !trap.failed() && pid == static_cast<unsigned long>(getpid());
}

bool X11FocusReturn::windowExists(unsigned long window) {
    XErrorTrap trap(m_display);
    XWindowAttributes attributes;
    const Status status = XGetWindowAttributes(m_display, window, &attributes);
    return !trap.failed() && status != 0;
}

bool X11FocusReturn::windowManagerActivates() {
    // A window manager that says it supports _NET_ACTIVE_WINDOW acts on the request; without one
    // nobody would.
    Display* const x = m_display;
    const Atom supported = XInternAtom(x, "_NET_SUPPORTED", True);
    const Atom activeWindow = XInternAtom(x, "_NET_ACTIVE_WINDOW", True);
    if (supported == None || activeWindow == None) return false;
    Atom type = None;
    int format = 0;
    unsigned long count = 0;
    unsigned long after = 0;
    unsigned char* data = nullptr;
    bool found = false;
    if (XGetWindowProperty(x, DefaultRootWindow(x), supported, 0, 4096, False, XA_ATOM, &type, &format,
                           &count, &after, &data) == Success &&
        data) {
        if (type == XA_ATOM && format == 32) {
            const auto* atoms = reinterpret_cast<const Atom*>(data);
            for (unsigned long i = 0; i < count && !found; ++i)
                found = atoms[i] == activeWindow;
        }
        XFree(data);
    }
    return found;
}

} // namespace murmurly
