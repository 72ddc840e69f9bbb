#pragma once

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>

namespace murmurly::testing {

// The environment the built program runs in on a private desktop: this process's own (DISPLAY,
// the private bus, audio server and home), with Qt on X11 and transcripts shown in the log.
QProcessEnvironment murmurlyEnvironment();

// The built tray program, started in the constructor and stopped (SIGTERM, then SIGKILL) in the
// destructor. Its log (standard error) is collected as it comes, while the caller's event loop runs.
class RunningMurmurly {
public:
    explicit RunningMurmurly(const QProcessEnvironment& environment = murmurlyEnvironment());
    ~RunningMurmurly();
    RunningMurmurly(const RunningMurmurly&) = delete;
    RunningMurmurly& operator=(const RunningMurmurly&) = delete;

    // Ends the program as a logout does; its exit status, or -1 when it had to be killed.
    int stop();
    // Ends it at once, as a crash or a power cut would.
    void killNow();
    bool isRunning() const { return m_process.state() == QProcess::Running; }
    qint64 processId() const { return m_process.processId(); }
    const QString& log() const { return m_log; }

private:
    QProcess m_process;
    QString m_log;
};

} // namespace murmurly::testing
