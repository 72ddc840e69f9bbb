#include "PrivatePulseServer.h"

#include "ChildProcess.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QThread>

namespace murmurly::testing {

namespace {

std::optional<QByteArray> currentEnv(const char* name) {
    if (!qEnvironmentVariableIsSet(name)) return std::nullopt;
    return qgetenv(name);
}

} // namespace

PrivatePulseServer::PrivatePulseServer(DefaultSource source) {
    if (!m_dir.isValid()) {
        m_error = QStringLiteral("no temporary directory");
        return;
    }
    const QString dir = m_dir.path();
    QFile script(dir + QStringLiteral("/server.pa"));
    if (!script.open(QIODevice::WriteOnly | QIODevice::Text)) {
        m_error = QStringLiteral("cannot write the server script");
        return;
    }
    script.write(QStringLiteral("load-module module-native-protocol-unix socket=%1/native auth-anonymous=1\n")
                     .arg(dir)
                     .toUtf8());
    if (source != DefaultSource::none) {
        script.write(QByteArray("load-module module-null-sink sink_name=") + sinkName +
                     " rate=48000 channels=2\n");
        script.write(QByteArray("set-default-sink ") + sinkName + "\n");
        script.write(QByteArray("set-default-source ") + sinkName + ".monitor\n");
    }
    if (source == DefaultSource::sine) {
        // A source that, like a microphone, has audio for a recorder from the moment it joins.
        script.write(QByteArray(
            "load-module module-sine-source source_name=murmurly_test_sine rate=48000 frequency=440\n"));
        script.write(QByteArray("set-default-source murmurly_test_sine\n"));
    }
    script.close();

    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), dir);
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), dir);
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), dir + QStringLiteral("/config"));
    env.insert(QStringLiteral("PULSE_RUNTIME_PATH"), dir);
    env.insert(QStringLiteral("PULSE_STATE_PATH"), dir + QStringLiteral("/state"));
    env.remove(QStringLiteral("PULSE_SERVER"));
    env.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS")); // no session services of the user
    m_server.setProcessEnvironment(env);
    m_server.setProcessChannelMode(QProcess::MergedChannels);
    endWithThisProcess(m_server);
    m_server.start(QStringLiteral("pulseaudio"),
                   {QStringLiteral("--daemonize=no"), QStringLiteral("--exit-idle-time=-1"),
                    QStringLiteral("-n"), QStringLiteral("-F"), script.fileName(),
                    QStringLiteral("--system=false"), QStringLiteral("--use-pid-file=no"),
                    QStringLiteral("--realtime=no"), QStringLiteral("--high-priority=no"),
                    QStringLiteral("--log-target=stderr")});
    if (!m_server.waitForStarted(5000)) {
        m_error = QStringLiteral("pulseaudio did not start: ") + m_server.errorString();
        return;
    }
    setEnv("PULSE_SERVER", address().toUtf8());
    if (!waitUntilAnswering(30000)) {
        m_error = QStringLiteral("pulseaudio did not answer: ") + QString::fromUtf8(m_server.readAll());
        return;
    }
    m_running = true;
}

PrivatePulseServer::~PrivatePulseServer() {
    stopChild(m_server);
    for (const auto& [name, value] : m_savedEnv) {
        if (value)
            qputenv(name.constData(), *value);
        else
            qunsetenv(name.constData());
    }
}

QString PrivatePulseServer::address() const {
    return QStringLiteral("unix:") + m_dir.path() + QStringLiteral("/native");
}

void PrivatePulseServer::setEnv(const char* name, const QByteArray& value) {
    m_savedEnv.append({QByteArray(name), currentEnv(name)});
    qputenv(name, value);
}

bool PrivatePulseServer::pactl(const QStringList& arguments, QByteArray* output) const {
    QProcess process;
    process.start(QStringLiteral("pactl"), QStringList{QStringLiteral("--server=") + address()} + arguments);
    if (!process.waitForFinished(10000)) {
        process.kill();
        process.waitForFinished(1000);
        return false;
    }
    if (output) *output = process.readAllStandardOutput();
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

bool PrivatePulseServer::waitUntilAnswering(int timeoutMs) {
    QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired()) {
        if (m_server.state() == QProcess::NotRunning) return false;
        if (QFile::exists(m_dir.path() + QStringLiteral("/native")) && pactl({QStringLiteral("info")}))
            return true;
        QThread::msleep(20);
    }
    return false;
}

bool PrivatePulseServer::waitForRecorder(int timeoutMs) {
    QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired()) {
        QByteArray outputs;
        if (pactl({QStringLiteral("list"), QStringLiteral("short"), QStringLiteral("source-outputs")},
                  &outputs) &&
            !outputs.trimmed().isEmpty())
            return true;
        QThread::msleep(20);
    }
    return false;
}

std::unique_ptr<QProcess> PrivatePulseServer::startPlaying(const QString& wavPath) {
    auto process = std::make_unique<QProcess>();
    process->setProcessChannelMode(QProcess::MergedChannels);
    // A second of buffer: a player starved by a busy machine would otherwise leave gaps of
    // silence in the middle of the speech.
    process->start(QStringLiteral("paplay"), {QStringLiteral("--server=") + address(),
                                              QStringLiteral("--device=") + QString::fromLatin1(sinkName),
                                              QStringLiteral("--latency-msec=1000"), wavPath});
    return process;
}

bool PrivatePulseServer::play(const QString& wavPath, int timeoutMs) {
    std::unique_ptr<QProcess> process = startPlaying(wavPath);
    if (!process->waitForFinished(timeoutMs)) {
        process->kill();
        process->waitForFinished(1000);
        return false;
    }
    return process->exitStatus() == QProcess::NormalExit && process->exitCode() == 0;
}

NoPulseServer::NoPulseServer()
    : m_saved(currentEnv("PULSE_SERVER")) {
    qputenv("PULSE_SERVER", (QStringLiteral("unix:") + m_dir.path() + QStringLiteral("/native")).toUtf8());
}

NoPulseServer::~NoPulseServer() {
    if (m_saved)
        qputenv("PULSE_SERVER", *m_saved);
    else
        qunsetenv("PULSE_SERVER");
}

} // namespace murmurly::testing
