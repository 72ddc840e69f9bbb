#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <chrono>

namespace murmurly::testing {

// The far side of the data-control protocols for the tests: the stand-in compositor
// (tests/support/StandInDataControlCompositor.cpp) on a runtime folder of its own, in which it
// makes its Wayland socket. Starting waits a bounded time for it to listen; it ends with the
// thread that started it and is stopped when the object goes away.
class StandInDataControlCompositorProcess {
public:
    // `options` as the stand-in compositor takes them (--with-wlr, --withhold MIME, …).
    explicit StandInDataControlCompositorProcess(const QStringList& options = {});
    ~StandInDataControlCompositorProcess();
    StandInDataControlCompositorProcess(const StandInDataControlCompositorProcess&) = delete;
    StandInDataControlCompositorProcess& operator=(const StandInDataControlCompositorProcess&) = delete;

    bool isRunning() const { return m_error.isEmpty() && m_process.state() == QProcess::Running; }
    // Why it is not running.
    QString error() const { return m_error; }
    // The Wayland socket's absolute path, as WAYLAND_DISPLAY for clients.
    QByteArray waylandDisplay() const { return m_waylandDisplay; }

    // The lines it printed so far.
    QByteArray output();
    // Waits until it has printed `line`, at most `limit`; the answer is whether it did.
    bool waitForLine(const QByteArray& line, std::chrono::milliseconds limit);

    // Ends the compositor at once, as a crash would.
    void kill();

private:
    QTemporaryDir m_runtime;
    QProcess m_process;
    QByteArray m_waylandDisplay;
    QByteArray m_output;
    QString m_error;
};

} // namespace murmurly::testing
