#pragma once

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>

namespace murmurly::testing {

// A Wayland compositor of the test's own, never the user's: Debian's sway on its headless backend
// (no screen, no input devices, software rendering), with a runtime folder of its own in which it
// makes its Wayland and IPC sockets. sway refuses to run as root, so under root it runs as the
// unprivileged user "nobody" (the runtime folder is handed to it); root's clients still reach its
// sockets. Starting waits a bounded time; the compositor ends with the thread that started it and
// is stopped when the object goes away.
class HeadlessSway {
public:
    // `configuration` is added to a minimal sway configuration (no bar, no XWayland).
    // sway's bindings of the trigger to `program`, as the README gives them: Right Alt starts
    // dictating on press and stops on release; while it is held, Esc cancels.
    static QString triggerBindings(const QString& program);

    explicit HeadlessSway(const QString& configuration = {},
                          const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment());
    ~HeadlessSway();
    HeadlessSway(const HeadlessSway&) = delete;
    HeadlessSway& operator=(const HeadlessSway&) = delete;

    bool isRunning() const { return m_error.isEmpty() && m_sway.state() == QProcess::Running; }
    // Why it is not running, with sway's own output.
    QString error() const { return m_error; }
    // The Wayland socket's absolute path, as WAYLAND_DISPLAY for clients.
    QByteArray waylandDisplay() const { return m_waylandDisplay; }
    QString runtimeDirectory() const { return m_runtime.path(); }
    qint64 processId() const { return m_sway.processId(); }
    // What sway wrote so far.
    QString log();

    // `environment` with WAYLAND_DISPLAY pointing here and Qt on its Wayland platform.
    QProcessEnvironment clientEnvironment(QProcessEnvironment environment) const;

    // Runs a sway command through its IPC socket (swaymsg); true when sway carried it out.
    bool command(const QString& command);

    // Ends the compositor at once, as a crash would.
    void kill();

private:
    bool start(const QString& configuration, const QProcessEnvironment& environment);

    QTemporaryDir m_runtime;
    QProcess m_sway;
    QByteArray m_waylandDisplay;
    QString m_ipcSocket;
    QString m_error;
    QString m_log;
};

} // namespace murmurly::testing
