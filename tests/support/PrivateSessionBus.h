#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

namespace murmurly::testing {

// A D-Bus session bus of the test's own, never the user's: a dbus-daemon listening in a temporary
// folder, without service activation, so nothing is started on it behind the test's back.
// DBUS_SESSION_BUS_ADDRESS points at it in this process (and the processes it starts) while the
// object exists. Starting waits a bounded time; the daemon is stopped when the object goes away.
class PrivateSessionBus {
public:
    // Who may connect: the user running the test (as a session bus has it), or any user, for
    // programs that a compositor running as another user starts (its key bindings).
    enum class Access { thisUser, anyUser };

    explicit PrivateSessionBus(Access access = Access::thisUser);
    ~PrivateSessionBus();
    PrivateSessionBus(const PrivateSessionBus&) = delete;
    PrivateSessionBus& operator=(const PrivateSessionBus&) = delete;

    bool isRunning() const { return m_error.isEmpty(); }
    // Why it is not running.
    QString error() const { return m_error; }
    QString address() const { return m_address; }
    // The daemon's process id; 0 when it is not running.
    qint64 processId() const { return m_daemon.processId(); }

private:
    bool start(Access access);

    QTemporaryDir m_dir;
    QProcess m_daemon;
    QString m_address;
    QString m_error;
    bool m_hadAddress = false;
    QByteArray m_previousAddress;
};

} // namespace murmurly::testing
