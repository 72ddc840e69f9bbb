#include "RunningMurmurly.h"

#include "WaitUntil.h"

namespace murmurly::testing {

using namespace std::chrono_literals;

QProcessEnvironment murmurlyEnvironment() {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    // Transcripts in the log, so a failure shows what was heard.
    environment.insert(QStringLiteral("MURMURLY_LOG_PRIVATE"), QStringLiteral("1"));
    return environment;
}

ProgramRun runMurmurly(const QStringList& arguments, const QProcessEnvironment& environment,
                       std::chrono::milliseconds limit) {
    return runMurmurlyAt(QStringLiteral(MURMURLY_EXECUTABLE), arguments, environment, limit);
}

ProgramRun runMurmurlyAt(const QString& path, const QStringList& arguments,
                         const QProcessEnvironment& environment, std::chrono::milliseconds limit) {
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(path, arguments);
    ProgramRun run;
    run.finished = waitUntil([&] { return process.state() == QProcess::NotRunning; }, limit);
    if (!run.finished) {
        process.kill();
        process.waitForFinished(5000);
    }
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.out = QString::fromUtf8(process.readAllStandardOutput());
    run.err = QString::fromUtf8(process.readAllStandardError());
    return run;
}

RunningMurmurly::RunningMurmurly(const QProcessEnvironment& environment, const QStringList& arguments) {
    m_process.setProcessEnvironment(environment);
    QObject::connect(&m_process, &QProcess::readyReadStandardError,
                     [this] { m_log += QString::fromUtf8(m_process.readAllStandardError()); });
    m_process.start(QStringLiteral(MURMURLY_EXECUTABLE), arguments);
}

RunningMurmurly::~RunningMurmurly() {
    stop();
}

int RunningMurmurly::stop() {
    if (m_process.state() == QProcess::NotRunning) return m_process.exitCode();
    m_process.terminate();
    if (!waitUntil([&] { return m_process.state() == QProcess::NotRunning; }, 10s)) {
        killNow();
        return -1;
    }
    m_log += QString::fromUtf8(m_process.readAllStandardError());
    return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
}

void RunningMurmurly::killNow() {
    if (m_process.state() == QProcess::NotRunning) return;
    m_process.kill();
    m_process.waitForFinished(5000);
    m_log += QString::fromUtf8(m_process.readAllStandardError());
}

} // namespace murmurly::testing
