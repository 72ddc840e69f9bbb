#include "platform/linux/X11KeyEventSource.h"

#include "core/Log.h"
#include "hotkey/KeyCodes.h"
#include "platform/linux/X11ConnectionLoss.h"
#include "platform/linux/X11OwnKeyEvents.h"

#include <QThread>

// Xlib after Qt: its macros (Bool, Status, None) would break Qt's headers.
#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>
#include <X11/extensions/XTest.h>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>

namespace murmurly {

namespace {

// Xlib's default error handler ends the process; a refused grab (another client holds the key)
// must only be logged.
int logXError(Display* display, XErrorEvent* error) {
    char text[128] = {};
    XGetErrorText(display, error->error_code, text, sizeof text);
    qCWarning(lcApp, "X request %d failed: %s", error->request_code, text);
    return 0;
}

void installErrorHandler() {
    static std::once_flag once;
    std::call_once(once, [] { XSetErrorHandler(&logXError); });
}

// How long the reader sleeps at most before it looks at its flags again.
constexpr int pollMilliseconds = 250;

} // namespace

X11KeyEventSource::X11KeyEventSource(QByteArray displayName, X11OwnKeyEvents* ownEvents)
    : m_displayName(std::move(displayName))
    , m_ownEvents(ownEvents) {
}

X11KeyEventSource::~X11KeyEventSource() {
    stop();
}

bool X11KeyEventSource::start(KeyEventSink& sink) {
    if (m_thread) {
        if (isRunning()) return true;
        stop(); // the connection was lost: start afresh
    }
    installErrorHandler();
    Display* display = XOpenDisplay(m_displayName.isEmpty() ? nullptr : m_displayName.constData());
    if (!display) return false;

    int event = 0;
    int error = 0;
    int major = 2;
    int minor = 2; // 2.1 and later deliver raw events during grabs too
    int testEvent = 0, testError = 0, testMajor = 0, testMinor = 0;
    if (!XQueryExtension(display, "XInputExtension", &m_xinputOpcode, &event, &error) ||
        XIQueryVersion(display, &major, &minor) != Success || major < 2 ||
        !XTestQueryExtension(display, &testEvent, &testError, &testMajor, &testMinor)) {
        XCloseDisplay(display);
        return false;
    }
    X11ConnectionLoss::survive(display, &X11KeyEventSource::connectionLost, this);
    // A held grabbed key repeats as presses only, without a release before each.
    XkbSetDetectableAutoRepeat(display, True, nullptr);

    m_display = display;
    m_root = DefaultRootWindow(display);
    unsigned char maskBits[XIMaskLen(XI_LASTEVENT)] = {};
    XISetMask(maskBits, XI_RawKeyPress);
    XISetMask(maskBits, XI_RawKeyRelease);
    XIEventMask mask{XIAllMasterDevices, sizeof maskBits, maskBits};
    XISelectEvents(display, m_root, &mask, 1);
    findXTestKeyboard();
    loadKeymap();
    // Keys already held (a modifier, say) count from the start.
    char keys[32] = {};
    XQueryKeymap(display, keys);
    for (std::size_t code = 0; code < m_down.size(); ++code)
        m_down[code] = (keys[code / 8] >> (code % 8)) & 1;
    m_swallowed.fill(false);
    XSync(display, False);

    m_sink = &sink;
    m_grabbed.clear();
    m_wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    m_stopping = false;
    m_connected = true;
    m_thread.reset(QThread::create([this] { run(); }));
    m_thread->setObjectName(QStringLiteral("Murmurly.HotkeyMonitor"));
    m_thread->start(QThread::TimeCriticalPriority);
    return true;
}

void X11KeyEventSource::stop() {
    if (!m_thread) return;
    m_stopping = true;
    wake();
    m_thread->wait(); // the reader looks at the flag at least every pollMilliseconds
    m_thread.reset();
    if (m_wakeFd >= 0) close(m_wakeFd);
    m_wakeFd = -1;
    m_sink = nullptr;
    m_connected = false;
}

bool X11KeyEventSource::isRunning() const {
    return m_thread && m_connected.load() && !m_stopping.load();
}

void X11KeyEventSource::setSwallowedKeys(const SwallowedKeys& keys) {
    {
        std::lock_guard lock(m_wantedMutex);
        m_wanted = keys;
    }
    wake();
}

void X11KeyEventSource::wake() {
    if (m_wakeFd < 0) return;
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(m_wakeFd, &one, sizeof one);
}

void X11KeyEventSource::connectionLost(Display*, void* source) {
    // Called by Xlib instead of ending the process; the reader sees the flag and ends.
    static_cast<X11KeyEventSource*>(source)->m_connected = false;
}

void X11KeyEventSource::run() {
    // Qt names the thread for itself only; the kernel keeps the first 15 characters, which is
    // what ps, top and debuggers show.
    prctl(PR_SET_NAME, "Murmurly.HotkeyMonitor", 0, 0, 0);
    updateGrabs();
    pollfd fds[2] = {{ConnectionNumber(m_display), POLLIN, 0}, {m_wakeFd, POLLIN, 0}};
    while (!m_stopping && m_connected) {
        while (m_connected && !m_stopping && XPending(m_display) > 0) {
            XEvent event;
            XNextEvent(m_display, &event);
            handle(event);
        }
        if (m_stopping || !m_connected) break;
        if (poll(fds, 2, pollMilliseconds) > 0 && (fds[1].revents & POLLIN)) {
            std::uint64_t count = 0;
            [[maybe_unused]] const auto read = ::read(m_wakeFd, &count, sizeof count);
            updateGrabs();
        }
    }
    if (m_connected) {
        for (KeyCode code : m_grabbed)
            XUngrabKey(m_display, code, AnyModifier, m_root);
        XUngrabKeyboard(m_display, CurrentTime); // in case a grabbed key is held right now
        XSync(m_display, False);
    }
    m_grabbed.clear();
    m_grabbedCount = 0;
    XCloseDisplay(m_display);
    X11ConnectionLoss::forget(m_display);
    m_display = nullptr;
}

void X11KeyEventSource::handle(_XEvent& event) {
    if (event.type == GenericEvent && event.xcookie.extension == m_xinputOpcode) {
        if (XGetEventData(m_display, &event.xcookie)) {
            const int type = event.xcookie.evtype;
            if (type == XI_RawKeyPress || type == XI_RawKeyRelease) {
                const auto* raw = static_cast<const XIRawEvent*>(event.xcookie.data);
                const auto code = static_cast<unsigned int>(raw->detail);
                const bool pressed = type == XI_RawKeyPress;
                if (code < m_down.size() && isOwnEvent(raw)) {
                    m_down[code] = pressed; // our own paste chord: state only, never an edge
                    m_swallowed[code] = false;
                } else {
                    keyChanged(code, pressed);
                }
            }
            XFreeEventData(m_display, &event.xcookie);
        }
        return;
    }
    if (event.type == MappingNotify) {
        XRefreshKeyboardMapping(&event.xmapping);
        loadKeymap();
        updateGrabs();
    }
    // Core key events come only while one of our grabs holds the keyboard, one at a time (the
    // keyboard stays frozen until answered). The raw event came first as a rule and was judged
    // already; a core one that changes the key's state is judged here.
    if (event.type == KeyPress || event.type == KeyRelease) {
        const unsigned int code = event.xkey.keycode;
        const bool pressed = event.type == KeyPress;
        if (code >= m_down.size()) return;
        if (m_down[code] != pressed) keyChanged(code, pressed);
        answerGrabbedEvent(code);
    }
}

void X11KeyEventSource::answerGrabbedEvent(unsigned int xKeyCode) {
    if (m_swallowed[xKeyCode]) {
        // Kept from the focused window. While the bound key is down the next event is handed over
        // in turn, so that its release can be kept too; otherwise (its release, Esc's press) the
        // keyboard is let go at once.
        if (aWithheldKeyIsDown())
            XAllowEvents(m_display, SyncKeyboard, CurrentTime);
        else
            XUngrabKeyboard(m_display, CurrentTime);
    } else {
        // Not ours: the server delivers it to the focused window as if there had been no grab,
        // and ends the grab. The trigger still held takes the keyboard back, so that its own
        // release is kept too.
        XAllowEvents(m_display, ReplayKeyboard, CurrentTime);
        if (aWithheldKeyIsDown() &&
            XGrabKeyboard(m_display, m_root, False, GrabModeAsync, GrabModeSync, CurrentTime) == GrabSuccess)
            XAllowEvents(m_display, SyncKeyboard, CurrentTime);
    }
    XFlush(m_display);
}

bool X11KeyEventSource::aWithheldKeyIsDown() const {
    for (std::size_t code = 0; code < m_down.size(); ++code)
        if (m_down[code] && m_swallowed[code] && m_boundKey[code]) return true;
    return false;
}

bool X11KeyEventSource::isOwnEvent(const void* rawEvent) {
    if (!m_ownEvents) return false;
    const auto* raw = static_cast<const XIRawEvent*>(rawEvent);
    // Our chord comes from the XTest keyboard; a real keyboard's key is never taken for it.
    if (m_xtestKeyboard >= 0 && raw->sourceid != m_xtestKeyboard) return false;
    return m_ownEvents->take(static_cast<unsigned char>(raw->detail), raw->evtype == XI_RawKeyPress);
}

void X11KeyEventSource::findXTestKeyboard() {
    m_xtestKeyboard = -1;
    int count = 0;
    XIDeviceInfo* devices = XIQueryDevice(m_display, XIAllDevices, &count);
    if (!devices) return;
    for (int i = 0; i < count; ++i) {
        const XIDeviceInfo& device = devices[i];
        // The X server names it "<master's name> XTEST keyboard".
        if (device.use == XISlaveKeyboard && device.name &&
            QByteArray(device.name).endsWith("XTEST keyboard")) {
            m_xtestKeyboard = device.deviceid;
            break;
        }
    }
    XIFreeDeviceInfo(devices);
}

void X11KeyEventSource::keyChanged(unsigned int xKeyCode, bool pressed) {
    if (xKeyCode >= m_down.size()) return;
    const bool wasDown = m_down[xKeyCode];
    m_down[xKeyCode] = pressed;
    m_swallowed[xKeyCode] = false;
    const auto canonical = m_keymap.canonical(xKeyCode);
    if (!canonical) return; // a key outside the canonical space cannot be a trigger
    if (X11Keymap::isModifierKey(*canonical)) {
        if (pressed && wasDown) return; // a held modifier repeating changes no flag
        m_swallowed[xKeyCode] =
            m_sink->keyEvent(KeyEvent::Type::flagsChanged, *canonical, heldModifierFlags());
        return;
    }
    // A press of a key already down is the keyboard's auto-repeat: a key-down again, as the
    // monitor expects.
    m_swallowed[xKeyCode] = m_sink->keyEvent(pressed ? KeyEvent::Type::keyDown : KeyEvent::Type::keyUp,
                                             *canonical, heldModifierFlags());
}

std::uint64_t X11KeyEventSource::heldModifierFlags() const {
    std::uint64_t flags = 0;
    for (KeyCode code : m_modifierKeys)
        if (m_down[code]) flags |= X11Keymap::modifierFlag(*m_keymap.canonical(code));
    return flags;
}

void X11KeyEventSource::loadKeymap() {
    m_keymap.load(m_display);
    m_modifierKeys.clear();
    for (unsigned int code = 0; code < m_down.size(); ++code)
        if (const auto canonical = m_keymap.canonical(code); canonical && X11Keymap::modifierFlag(*canonical))
            m_modifierKeys.push_back(static_cast<KeyCode>(code));
}

void X11KeyEventSource::updateGrabs() {
    SwallowedKeys wanted;
    {
        std::lock_guard lock(m_wantedMutex);
        wanted = m_wanted;
    }
    std::vector<unsigned char> codes;
    if (wanted.boundKey) codes = m_keymap.xKeyCodes(*wanted.boundKey);
    m_boundKey.fill(false);
    for (KeyCode code : codes)
        m_boundKey[code] = true;
    if (wanted.escape)
        for (KeyCode code : m_keymap.xKeyCodes(KeyCodes::escape))
            if (std::find(codes.begin(), codes.end(), code) == codes.end()) codes.push_back(code);
    if (codes == m_grabbed) return;
    // Whatever modifiers or lock keys are on, the key is the trigger and must not get through.
    for (KeyCode code : m_grabbed)
        XUngrabKey(m_display, code, AnyModifier, m_root);
    for (KeyCode code : codes)
        XGrabKey(m_display, code, AnyModifier, m_root, False, GrabModeAsync, GrabModeSync);
    XSync(m_display, False);
    m_grabbed = codes;
    m_grabbedCount = static_cast<int>(codes.size());
}

} // namespace murmurly
