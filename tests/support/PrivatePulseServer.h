#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>
#include <optional>

namespace murmurly::testing {

// A PulseAudio server of the test's own, never the user's: its runtime, state and home folders
// live in a temporary directory, it listens on a socket there, and clients of this process reach
// it through PULSE_SERVER while the object exists. Its default sink is a null sink (48 kHz
// stereo, like a common microphone) and, by default, the default source is that sink's monitor,
// so audio played into the sink is what a recording hears. The monitor of a null sink delivers
// nothing while nothing plays and, to a recorder that joins while something plays, starts
// delivering only after the sink's current render block (up to two seconds), so recordings start
// before playback. For timing tests a sine source, which renders a block for a recorder as soon
// as it joins, can be the default source instead. It runs as root too (--system=false
// only warns). Starting waits a bounded time; the server is killed when the object goes away.
class PrivatePulseServer {
public:
    static constexpr const char* sinkName = "murmurly_test_sink";

    enum class DefaultSource { nullSinkMonitor, sine, none };

    explicit PrivatePulseServer(DefaultSource source = DefaultSource::nullSinkMonitor);
    ~PrivatePulseServer();
    PrivatePulseServer(const PrivatePulseServer&) = delete;
    PrivatePulseServer& operator=(const PrivatePulseServer&) = delete;

    bool isRunning() const { return m_running; }
    // Why it is not running, with the server's own output.
    QString error() const { return m_error; }
    QString address() const; // "unix:<dir>/native"
    // The server's process id; 0 when it is not running.
    qint64 processId() const { return m_server.processId(); }

    // Waits, at most `timeoutMs`, until a client records from the server. A program that says it
    // is recording may still be connecting its stream; played before that, the start is lost.
    bool waitForRecorder(int timeoutMs = 20000);

    // Plays a WAV file into the sink with paplay and returns when it has been played out.
    bool play(const QString& wavPath, int timeoutMs = 60000);
    // Starts paplay and returns at once.
    std::unique_ptr<QProcess> startPlaying(const QString& wavPath);

private:
    // Runs pactl against this server, bounded; true when it succeeded.
    bool pactl(const QStringList& arguments, QByteArray* output = nullptr) const;
    bool waitUntilAnswering(int timeoutMs);
    void setEnv(const char* name, const QByteArray& value);

    QTemporaryDir m_dir;
    QProcess m_server;
    bool m_running = false;
    QString m_error;
    QList<QPair<QByteArray, std::optional<QByteArray>>> m_savedEnv;
};

// Sets PULSE_SERVER to a socket nobody listens on while it exists: "no audio server".
class NoPulseServer {
public:
    NoPulseServer();
    ~NoPulseServer();

private:
    QTemporaryDir m_dir;
    std::optional<QByteArray> m_saved;
};

} // namespace murmurly::testing
