#pragma once

#include <QObject>
#include <QTimer>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>

struct pa_context;
struct pa_threaded_mainloop;

namespace murmurly {

// Whether an audio server answers and offers at least one source to record from (a monitor of an
// output counts). One connection stays open on PulseAudio's own thread and is told of every source
// and server change, so a read is an atomic load that never waits for the server. When the server
// goes away the answer turns false and a new connection is tried every `retryInterval` until one
// comes back. Connections are made on the main thread, where the environment (PULSE_SERVER) is read;
// starting one does not wait for the server (libpulse connects asynchronously), though libpulse
// reads its client.conf and, with DISPLAY set, the server hints on the X root window. The audio
// thread only answers. Lives on the main thread.
class PulseSourceMonitor final : public QObject {
    Q_OBJECT

public:
    // How long the very first read waits for an answer; later reads never wait.
    static constexpr std::chrono::milliseconds firstAnswerLimit{250};
    // How long a connection may take before the server counts as not answering.
    static constexpr std::chrono::milliseconds connectLimit{1500};
    static constexpr std::chrono::milliseconds retryInterval{2000};

    explicit PulseSourceMonitor(QObject* parent = nullptr);
    ~PulseSourceMonitor() override;

    // The current answer. The first call starts watching and waits up to firstAnswerLimit.
    bool hasSource();
    // The answer as it stands, without starting anything or waiting.
    bool lastAnswer() const { return m_hasSource.load(); }
    // How many reads have waited for the server (only the first may).
    int answerWaits() const { return m_answerWaits; }

    // Asks the server afresh (connecting at once if there is no connection) and returns the
    // number of that check, answered when it or a later one has its answer.
    std::uint64_t checkAgain();
    bool isAnswered(std::uint64_t check) const { return m_answeredCheck.load() >= check; }

private:
    bool ensureStarted();
    void connectLocked();
    void dropContextLocked();
    void onContextStateLocked();
    void querySourcesLocked(std::uint64_t check);
    void onSourceLocked(bool isLast, bool failed);
    void answerLocked(std::uint64_t check, bool hasSource);
    void failLocked();
    void notifyMainThread();
    void onNotified();
    void onConnectTimeout();
    void reconnect();

    bool m_startFailed = false;
    pa_threaded_mainloop* m_mainloop = nullptr;

    // Under the loop's lock.
    pa_context* m_context = nullptr;
    bool m_failed = false;                    // the context ended; it is replaced by the next attempt
    std::uint64_t m_issuedChecks = 0;         // the highest check number handed out
    std::uint64_t m_connectCheck = 0;         // answered by the connection's first source list
    std::deque<std::uint64_t> m_pendingLists; // checks whose source list is on its way
    int m_sourcesSeen = 0;                    // sources of the list being received
    bool m_outageLogged = false;

    std::atomic<bool> m_hasSource{false};
    std::atomic<std::uint64_t> m_answeredCheck{0};

    // Main thread.
    int m_answerWaits = 0;
    QTimer m_retry;
    QTimer m_connectTimeout;
};

} // namespace murmurly
