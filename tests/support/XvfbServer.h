#pragma once

#include <QByteArray>
#include <QString>

#include <sys/types.h>

namespace murmurly::testing {

// A private X server for one test process: Xvfb on a display number it picks itself among the free
// ones, never the user's display. Started by the constructor (bounded wait), killed by the
// destructor.
class XvfbServer {
public:
    enum class Numbering {
        // The lowest free number, chosen by Xvfb; once killed, the number is free for the next server.
        lowestFree,
        // A number far above the ones Xvfb picks for itself, still held after kill() (by a lock file
        // in this process's name) until destruction: for tests that need the display to stay dead
        // while other test processes start servers of their own.
        keptAfterKill,
    };

    explicit XvfbServer(Numbering numbering = Numbering::lowestFree);
    ~XvfbServer();
    XvfbServer(const XvfbServer&) = delete;
    XvfbServer& operator=(const XvfbServer&) = delete;

    bool isRunning() const { return m_pid > 0; }
    QString error() const { return m_error; }
    // ":N", for XOpenDisplay and DISPLAY.
    QByteArray displayName() const { return m_displayName; }
    // The server's process id; -1 when it is not running.
    pid_t processId() const { return m_pid; }

    // Ends the server at once, as a crash or a logout would.
    void kill();

    // A display name no server answers to: far above the numbers servers pick for themselves, and
    // without a lock file. (A server started and stopped would free its number for the next test
    // process running in parallel.)
    static QByteArray unusedDisplayName();

private:
    // Starts Xvfb on `number` (empty: Xvfb picks); true once it reported its display number.
    bool launch(const QByteArray& number);
    void releaseKeptNumber();

    pid_t m_pid = -1;
    QByteArray m_keptLock;
    bool m_ownsLock = false;
    QByteArray m_displayName;
    QString m_error;
};

} // namespace murmurly::testing
