#include "StandInDataControlCompositorProcess.h"

#include "ChildProcess.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QProcessEnvironment>

namespace murmurly::testing {

namespace {

constexpr std::chrono::milliseconds startLimit{20000};
const QString socketName = QStringLiteral("wayland-stand-in");

} // namespace

StandInDataControlCompositorProcess::StandInDataControlCompositorProcess(const QStringList& options) {
    if (!m_runtime.isValid()) {
        m_error = QStringLiteral("no temporary folder");
        return;
    }
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_runtime.path());
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    m_process.setProcessEnvironment(environment);
    // Its complaints go to the test's own output, where a failing test shows them.
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    endWithThisProcess(m_process);
    m_process.start(QStringLiteral(MURMURLY_STAND_IN_DATA_CONTROL_COMPOSITOR),
                    QStringList{socketName} + options);
    if (!m_process.waitForStarted(static_cast<int>(startLimit.count()))) {
        m_error = QStringLiteral("the stand-in compositor did not start: ") + m_process.errorString();
        return;
    }
    if (!waitForLine("ready", startLimit)) {
        m_error = m_process.state() == QProcess::Running
                      ? QStringLiteral("the stand-in compositor did not listen in time")
                      : QStringLiteral("the stand-in compositor ended at start");
        stopChild(m_process);
        return;
    }
    m_waylandDisplay = QFile::encodeName(m_runtime.filePath(socketName));
}

StandInDataControlCompositorProcess::~StandInDataControlCompositorProcess() {
    stopChild(m_process);
}

QByteArray StandInDataControlCompositorProcess::output() {
    m_output += m_process.readAllStandardOutput();
    return m_output;
}

bool StandInDataControlCompositorProcess::waitForLine(const QByteArray& line,
                                                      std::chrono::milliseconds limit) {
    const QDeadlineTimer deadline(limit);
    const QByteArray wanted = line + '\n';
    for (;;) {
        // What a process that has ended wrote is all there once it has ended.
        const bool running = m_process.state() == QProcess::Running;
        const QByteArray seen = output();
        if (seen.startsWith(wanted) || seen.contains('\n' + wanted)) return true;
        if (deadline.hasExpired() || !running) return false;
        m_process.waitForReadyRead(50);
    }
}

void StandInDataControlCompositorProcess::kill() {
    if (m_process.state() == QProcess::NotRunning) return;
    m_process.kill();
    m_process.waitForFinished(5000);
}

} // namespace murmurly::testing
