#pragma once

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <chrono>

namespace murmurly::testing {

// The environment the built program runs in on a private desktop: this process's own (DISPLAY,
// the private bus, audio server and home), with Qt on X11 and transcripts shown in the log.
QProcessEnvironment murmurlyEnvironment();

// What one short-lived run of the program left behind.
struct ProgramRun {
    bool finished = false; // within its time limit
    int exitCode = -1;     // -1 when it crashed or had to be killed
    QString out;
    QString err;
};

// Runs the program with `arguments` to its end (a control option, `transcribe`, a second launch),
// serving this process's event loop meanwhile; killed after `limit`.
ProgramRun runMurmurly(const QStringList& arguments, const QProcessEnvironment& environment,
                       std::chrono::milliseconds limit);
// The same with a copy of the command elsewhere (see ProgramCopy).
ProgramRun runMurmurlyAt(const QString& path, const QStringList& arguments,
                         const QProcessEnvironment& environment, std::chrono::milliseconds limit);

// The built tray program, started in the constructor and stopped (SIGTERM, then SIGKILL) in the
// destructor. Its log (standard error) is collected as it comes, while the caller's event loop runs.
class RunningMurmurly {
public:
    explicit RunningMurmurly(const QProcessEnvironment& environment = murmurlyEnvironment(),
                             const QStringList& arguments = {});
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
