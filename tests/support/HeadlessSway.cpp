#include "HeadlessSway.h"

#include "ChildProcess.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace murmurly::testing {

namespace {

constexpr int startLimitMilliseconds = 20000;

const char* baseConfiguration = R"(# A compositor for tests: one headless output, no bar, no X clients.
xwayland disable
output HEADLESS-1 resolution 1280x800
default_border none
focus_on_window_activation focus
)";

} // namespace

// sway sees the Alt modifier already set when Right Alt goes down, and still set as it comes up,
// hence "Mod1+"; the press must not repeat while the key is held. (A release binding inside a mode
// entered by the press binding was not run by sway 1.7.)
QString HeadlessSway::triggerBindings(const QString& program) {
    return QStringLiteral("bindsym --no-repeat Mod1+Alt_R exec %1 --press\n"
                          "bindsym --release Mod1+Alt_R exec %1 --release\n"
                          "bindsym Mod1+Escape exec %1 --cancel\n")
        .arg(program);
}

HeadlessSway::HeadlessSway(const QString& configuration, const QProcessEnvironment& environment) {
    if (!start(configuration, environment)) {
        if (m_sway.state() != QProcess::NotRunning) stopChild(m_sway);
        m_error += QStringLiteral("\nsway's output:\n") + log();
    }
}

HeadlessSway::~HeadlessSway() {
    stopChild(m_sway);
}

bool HeadlessSway::start(const QString& configuration, const QProcessEnvironment& environment) {
    if (!m_runtime.isValid()) {
        m_error = QStringLiteral("no temporary folder");
        return false;
    }
    const QString configPath = m_runtime.filePath(QStringLiteral("sway.config"));
    QFile config(configPath);
    if (!config.open(QIODevice::WriteOnly) ||
        config.write(QByteArray(baseConfiguration) + configuration.toUtf8() + '\n') < 0) {
        m_error = QStringLiteral("cannot write the sway configuration");
        return false;
    }
    config.close();

    const bool root = geteuid() == 0;
    if (root) {
        const passwd* nobody = getpwnam("nobody");
        if (!nobody) {
            m_error = QStringLiteral("there is no user \"nobody\" to run sway as");
            return false;
        }
        // sway makes its sockets here and reads its configuration from here.
        const QByteArray path = QFile::encodeName(m_runtime.path());
        if (chown(path.constData(), nobody->pw_uid, nobody->pw_gid) != 0 ||
            chown(QFile::encodeName(configPath).constData(), nobody->pw_uid, nobody->pw_gid) != 0) {
            m_error = QStringLiteral("cannot hand the runtime folder to nobody");
            return false;
        }
    }
    chmod(QFile::encodeName(m_runtime.path()).constData(), 0700);

    QProcessEnvironment swayEnvironment = environment;
    swayEnvironment.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_runtime.path());
    swayEnvironment.insert(QStringLiteral("HOME"), m_runtime.path());
    swayEnvironment.insert(QStringLiteral("WLR_BACKENDS"), QStringLiteral("headless"));
    swayEnvironment.insert(QStringLiteral("WLR_LIBINPUT_NO_DEVICES"), QStringLiteral("1"));
    swayEnvironment.insert(QStringLiteral("WLR_RENDERER"), QStringLiteral("pixman"));
    swayEnvironment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    swayEnvironment.remove(QStringLiteral("DISPLAY"));
    swayEnvironment.remove(QStringLiteral("SWAYSOCK"));
    m_sway.setProcessEnvironment(swayEnvironment);
    m_sway.setProcessChannelMode(QProcess::MergedChannels);
    endWithThisProcess(m_sway);

    QStringList arguments{QStringLiteral("sway"), QStringLiteral("--config"), configPath};
    if (root) {
        // The death signal set before exec is kept across setpriv's change of user.
        arguments = QStringList{QStringLiteral("--reuid=nobody"), QStringLiteral("--regid=nogroup"),
                                QStringLiteral("--clear-groups"), QStringLiteral("--pdeathsig=keep")} +
                    arguments;
        m_sway.start(QStringLiteral("setpriv"), arguments);
    } else {
        m_sway.start(arguments.takeFirst(), arguments);
    }
    if (!m_sway.waitForStarted(startLimitMilliseconds)) {
        m_error = QStringLiteral("sway did not start (is it installed? scripts/install-deps): ") +
                  m_sway.errorString();
        return false;
    }

    // Ready once both sockets exist and the IPC answers.
    const QDeadlineTimer deadline(startLimitMilliseconds);
    const QDir runtime(m_runtime.path());
    while (!deadline.hasExpired() && m_sway.state() == QProcess::Running) {
        const QStringList sockets = runtime.entryList({QStringLiteral("wayland-*")}, QDir::System);
        const QStringList ipc = runtime.entryList({QStringLiteral("sway-ipc.*.sock")}, QDir::System);
        QString socket;
        for (const QString& name : sockets)
            if (!name.endsWith(QStringLiteral(".lock"))) socket = name;
        if (!socket.isEmpty() && !ipc.isEmpty()) {
            m_waylandDisplay = QFile::encodeName(runtime.filePath(socket));
            m_ipcSocket = runtime.filePath(ipc.first());
            if (command(QStringLiteral("nop"))) return true;
        }
        m_sway.waitForReadyRead(50);
        m_log += QString::fromUtf8(m_sway.readAll());
    }
    m_error = m_sway.state() == QProcess::Running ? QStringLiteral("sway did not open its sockets in time")
                                                  : QStringLiteral("sway ended at start");
    return false;
}

QString HeadlessSway::log() {
    m_log += QString::fromUtf8(m_sway.readAll());
    return m_log;
}

QProcessEnvironment HeadlessSway::clientEnvironment(QProcessEnvironment environment) const {
    environment.insert(QStringLiteral("WAYLAND_DISPLAY"), QString::fromUtf8(m_waylandDisplay));
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("wayland"));
    environment.insert(QStringLiteral("SWAYSOCK"), m_ipcSocket);
    return environment;
}

bool HeadlessSway::command(const QString& command) {
    if (m_ipcSocket.isEmpty()) return false;
    QProcess swaymsg;
    swaymsg.setProcessChannelMode(QProcess::MergedChannels);
    swaymsg.start(QStringLiteral("swaymsg"), {QStringLiteral("--socket"), m_ipcSocket, command});
    if (!swaymsg.waitForFinished(10000)) {
        swaymsg.kill();
        swaymsg.waitForFinished(3000);
        return false;
    }
    return swaymsg.exitStatus() == QProcess::NormalExit && swaymsg.exitCode() == 0;
}

void HeadlessSway::kill() {
    if (m_sway.state() == QProcess::NotRunning) return;
    m_sway.kill();
    m_sway.waitForFinished(5000);
}

} // namespace murmurly::testing
