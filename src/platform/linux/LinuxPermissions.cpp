#include "platform/linux/LinuxPermissions.h"

#include "core/Log.h"
#include "platform/linux/PulseSourceMonitor.h"
#include "platform/linux/X11ConnectionLoss.h"

#include <QCoroTimer>
#include <QDeadlineTimer>
#include <QList>
#include <QProcess>
#include <QStandardPaths>
#include <QStringList>

// Xlib after Qt: its macros (Bool, Status, None) would break Qt's headers.
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>
#include <X11/extensions/XTest.h>

#include <sys/prctl.h>

#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

namespace murmurly {

namespace {

// How often a microphone request looks for its answer.
constexpr std::chrono::milliseconds requestPollInterval{20};

// A server that vanishes mid-question fails the query under way: no keyboard access.
void keepRunningAfterLostConnection(Display*, void*) {
}

// Opens the display, asks for the two extensions the key reader and the paste need, and closes it.
bool displayHasInputExtensions(const QByteArray& displayName) {
    Display* display = XOpenDisplay(displayName.constData());
    if (!display) return false;
    X11ConnectionLoss::survive(display, &keepRunningAfterLostConnection, nullptr);
    int opcode = 0, event = 0, error = 0;
    int major = 2, minor = 0;
    int testEvent = 0, testError = 0, testMajor = 0, testMinor = 0;
    const bool present = XQueryExtension(display, "XInputExtension", &opcode, &event, &error) &&
                         XIQueryVersion(display, &major, &minor) == Success && major >= 2 &&
                         XTestQueryExtension(display, &testEvent, &testError, &testMajor, &testMinor);
    XCloseDisplay(display);
    X11ConnectionLoss::forget(display);
    return present;
}

struct SettingsProgram {
    QString name;
    QStringList arguments;
};

// The settings programs of the common desktops, most specific first.
QList<SettingsProgram> settingsPrograms(const QString& pane) {
    if (pane == Permissions::microphonePane)
        return {{QStringLiteral("gnome-control-center"), {QStringLiteral("sound")}},
                {QStringLiteral("pavucontrol"), {}},
                {QStringLiteral("kcmshell6"), {QStringLiteral("kcm_pulseaudio")}},
                {QStringLiteral("kcmshell5"), {QStringLiteral("kcm_pulseaudio")}},
                {QStringLiteral("xfce4-settings-manager"), {}}};
    if (pane == Permissions::keyboardPane)
        return {{QStringLiteral("gnome-control-center"), {QStringLiteral("keyboard")}},
                {QStringLiteral("kcmshell6"), {QStringLiteral("kcm_keys")}},
                {QStringLiteral("kcmshell5"), {QStringLiteral("kcm_keys")}},
                {QStringLiteral("xfce4-keyboard-settings"), {}}};
    return {};
}

} // namespace

// One keyboard check, shared by the caller and the thread that talks to the X server: the caller
// may stop waiting while the thread still owns its half.
struct LinuxPermissions::KeyboardCheck {
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
    bool answer = false;
};

LinuxPermissions::LinuxPermissions()
    : m_microphone(std::make_unique<PulseSourceMonitor>()) {
}

LinuxPermissions::~LinuxPermissions() = default;

bool LinuxPermissions::keyboardAccess() {
    if (m_keyboardOverride) return m_keyboardOverride();
    // Xlib has no timeout of its own: a server that accepts the connection and never answers (a
    // stopped server, a dead network display) would block its caller for good. So the question is
    // asked on a thread of its own and the caller waits a bounded time.
    if (m_keyboardCheck) {
        std::lock_guard lock(m_keyboardCheck->mutex);
        if (!m_keyboardCheck->done) {
            qCDebug(lcApp, "The X server has not answered the previous keyboard check yet");
            return false;
        }
    }
    // The display of the moment of asking, read on the caller's thread.
    const QByteArray displayName = qgetenv("DISPLAY");
    if (displayName.isEmpty()) {
        qCDebug(lcApp, "No X display: DISPLAY is not set");
        return false;
    }
    auto check = std::make_shared<KeyboardCheck>();
    try {
        std::thread([check, displayName] {
            prctl(PR_SET_NAME, "Murmurly.XCheck", 0, 0, 0);
            const bool answer = displayHasInputExtensions(displayName);
            std::lock_guard lock(check->mutex);
            check->done = true;
            check->answer = answer;
            check->finished.notify_all();
        }).detach();
    } catch (const std::system_error& error) {
        qCCritical(lcApp, "Could not check keyboard access: %s", error.what());
        return false;
    }
    m_keyboardCheck = check;
    std::unique_lock lock(check->mutex);
    if (!check->finished.wait_for(lock, keyboardCheckLimit, [&] { return check->done; })) {
        qCInfo(lcApp, "The X server of DISPLAY %s did not answer within %lld ms", displayName.constData(),
               static_cast<long long>(keyboardCheckLimit.count()));
        return false;
    }
    return check->answer;
}

bool LinuxPermissions::requestKeyboardAccess() {
    if (m_keyboardRequest) m_keyboardRequest();
    // X11 has no prompt to show: asking is checking.
    return keyboardAccess();
}

int LinuxPermissions::microphoneAnswerWaits() const {
    return m_microphone->answerWaits();
}

bool LinuxPermissions::microphoneAuthorized() {
    return m_microphone->hasSource();
}

QCoro::Task<bool> LinuxPermissions::requestMicrophoneAccess() {
    // No desktop asks the user about the microphone here: ask the audio server afresh instead.
    PulseSourceMonitor* monitor = m_microphone.get();
    const std::uint64_t check = monitor->checkAgain();
    const QDeadlineTimer deadline(microphoneRequestLimit);
    // The answer arrives on the audio thread and is only read here, so a short sleep between looks
    // is all the waiting needs; the event loop runs meanwhile.
    while (!monitor->isAnswered(check) && !deadline.hasExpired())
        co_await QCoro::sleepFor(
            std::min(requestPollInterval, std::chrono::milliseconds(deadline.remainingTime())));
    if (!monitor->isAnswered(check)) {
        qCInfo(lcApp, "The audio server did not answer within %lld ms",
               static_cast<long long>(microphoneRequestLimit.count()));
        co_return false;
    }
    co_return monitor->lastAnswer();
}

void LinuxPermissions::openSystemSettings(const QString& pane) {
    const QList<SettingsProgram> candidates = settingsPrograms(pane);
    if (candidates.isEmpty()) {
        qCDebug(lcApp, "No settings page is known for \"%s\"", qUtf8Printable(pane));
        return;
    }
    for (const SettingsProgram& program : candidates) {
        const QString path = QStandardPaths::findExecutable(program.name);
        if (path.isEmpty()) continue;
        if (QProcess::startDetached(path, program.arguments))
            qCInfo(lcApp, "Opened %s for the %s settings", qUtf8Printable(path), qUtf8Printable(pane));
        else
            qCDebug(lcApp, "Could not start %s", qUtf8Printable(path));
        return;
    }
    qCDebug(lcApp, "No settings program for the %s settings was found on PATH", qUtf8Printable(pane));
}

} // namespace murmurly
