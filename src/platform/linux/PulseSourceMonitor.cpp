#include "platform/linux/PulseSourceMonitor.h"

#include "core/Log.h"

#include <pulse/pulseaudio.h>

namespace murmurly {

namespace {

// RAII lock of the threaded main loop.
class LoopLock {
public:
    explicit LoopLock(pa_threaded_mainloop* mainloop)
        : m_mainloop(mainloop) {
        pa_threaded_mainloop_lock(m_mainloop);
    }
    ~LoopLock() { pa_threaded_mainloop_unlock(m_mainloop); }
    LoopLock(const LoopLock&) = delete;
    LoopLock& operator=(const LoopLock&) = delete;

private:
    pa_threaded_mainloop* m_mainloop;
};

} // namespace

PulseSourceMonitor::PulseSourceMonitor(QObject* parent)
    : QObject(parent) {
    m_retry.setSingleShot(true);
    m_retry.setInterval(retryInterval);
    connect(&m_retry, &QTimer::timeout, this, &PulseSourceMonitor::reconnect);
    m_connectTimeout.setSingleShot(true);
    m_connectTimeout.setInterval(connectLimit);
    connect(&m_connectTimeout, &QTimer::timeout, this, &PulseSourceMonitor::onConnectTimeout);
}

PulseSourceMonitor::~PulseSourceMonitor() {
    if (!m_mainloop) return;
    {
        LoopLock lock(m_mainloop);
        dropContextLocked();
    }
    // Joins the audio thread: nothing is posted to this object afterwards.
    pa_threaded_mainloop_stop(m_mainloop);
    pa_threaded_mainloop_free(m_mainloop);
}

bool PulseSourceMonitor::ensureStarted() {
    if (m_mainloop) return true;
    if (m_startFailed) return false;
    m_mainloop = pa_threaded_mainloop_new();
    if (m_mainloop) pa_threaded_mainloop_set_name(m_mainloop, "Murmurly.Audio");
    if (!m_mainloop || pa_threaded_mainloop_start(m_mainloop) < 0) {
        qCCritical(lcApp, "Could not start the thread that watches the audio server");
        if (m_mainloop) pa_threaded_mainloop_free(m_mainloop);
        m_mainloop = nullptr;
        m_startFailed = true;
        return false;
    }
    LoopLock lock(m_mainloop);
    connectLocked();
    return true;
}

bool PulseSourceMonitor::hasSource() {
    if (m_mainloop || !ensureStarted()) return m_hasSource.load();

    // The first read: a local server answers within milliseconds, so waiting a little gives the
    // real answer instead of a "no" that the next read would correct.
    ++m_answerWaits;
    LoopLock lock(m_mainloop);
    const std::uint64_t check = m_connectCheck;
    pa_mainloop_api* api = pa_threaded_mainloop_get_api(m_mainloop);
    struct timeval deadline;
    pa_gettimeofday(&deadline);
    pa_timeval_add(&deadline, pa_usec_t(std::chrono::microseconds(firstAnswerLimit).count()));
    // Wakes the wait below at the deadline even if the server never answers.
    pa_time_event* timer = api->time_new(
        api, &deadline,
        [](pa_mainloop_api*, pa_time_event*, const struct timeval*, void* mainloop) {
            pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop*>(mainloop), 0);
        },
        m_mainloop);
    const auto end = std::chrono::steady_clock::now() + firstAnswerLimit;
    while (!isAnswered(check) && std::chrono::steady_clock::now() < end)
        pa_threaded_mainloop_wait(m_mainloop);
    api->time_free(timer);
    return m_hasSource.load();
}

std::uint64_t PulseSourceMonitor::checkAgain() {
    if (!ensureStarted()) return 0; // check 0 counts as answered: the answer stays "no"
    LoopLock lock(m_mainloop);
    if (m_context && !m_failed) {
        if (pa_context_get_state(m_context) != PA_CONTEXT_READY) return m_connectCheck;
        const std::uint64_t check = ++m_issuedChecks;
        querySourcesLocked(check);
        return check;
    }
    // No connection: try one now rather than at the next retry.
    m_retry.stop();
    connectLocked();
    return m_connectCheck;
}

void PulseSourceMonitor::connectLocked() {
    dropContextLocked();
    m_failed = false;
    m_connectCheck = ++m_issuedChecks;
    m_context = pa_context_new(pa_threaded_mainloop_get_api(m_mainloop), "Murmurly");
    if (!m_context) {
        failLocked();
        return;
    }
    pa_context_set_state_callback(
        m_context,
        [](pa_context*, void* self) { static_cast<PulseSourceMonitor*>(self)->onContextStateLocked(); },
        this);
    // Never start a server of our own: only the one the desktop runs counts.
    if (pa_context_connect(m_context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        failLocked();
        return;
    }
    if (!m_failed) m_connectTimeout.start();
}

void PulseSourceMonitor::dropContextLocked() {
    m_pendingLists.clear();
    m_sourcesSeen = 0;
    if (!m_context) return;
    pa_context_set_state_callback(m_context, nullptr, nullptr);
    pa_context_set_subscribe_callback(m_context, nullptr, nullptr);
    pa_context_disconnect(m_context);
    pa_context_unref(m_context);
    m_context = nullptr;
}

void PulseSourceMonitor::onContextStateLocked() {
    const pa_context_state_t state = pa_context_get_state(m_context);
    if (state == PA_CONTEXT_READY) {
        m_outageLogged = false;
        pa_context_set_subscribe_callback(
            m_context,
            [](pa_context*, pa_subscription_event_type_t type, uint32_t, void* self) {
                const unsigned facility = type & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
                // A source came or went, or the server's defaults changed: count again.
                if (facility == PA_SUBSCRIPTION_EVENT_SOURCE || facility == PA_SUBSCRIPTION_EVENT_SERVER) {
                    auto* monitor = static_cast<PulseSourceMonitor*>(self);
                    monitor->querySourcesLocked(++monitor->m_issuedChecks);
                }
            },
            this);
        if (pa_operation* operation = pa_context_subscribe(
                m_context, pa_subscription_mask_t(PA_SUBSCRIPTION_MASK_SOURCE | PA_SUBSCRIPTION_MASK_SERVER),
                nullptr, nullptr))
            pa_operation_unref(operation);
        querySourcesLocked(m_connectCheck);
    } else if (!PA_CONTEXT_IS_GOOD(state)) {
        // Once per outage, not at every retry.
        if (!m_outageLogged)
            qCDebug(lcApp, "Audio server connection ended: %s", pa_strerror(pa_context_errno(m_context)));
        m_outageLogged = true;
        failLocked();
    }
}

void PulseSourceMonitor::querySourcesLocked(std::uint64_t check) {
    pa_operation* operation = pa_context_get_source_info_list(
        m_context,
        [](pa_context*, const pa_source_info* info, int eol, void* self) {
            static_cast<PulseSourceMonitor*>(self)->onSourceLocked(eol != 0 || !info, eol < 0);
        },
        this);
    if (!operation) {
        answerLocked(check, false);
        return;
    }
    pa_operation_unref(operation);
    m_pendingLists.push_back(check);
}

void PulseSourceMonitor::onSourceLocked(bool isLast, bool failed) {
    if (!isLast) {
        ++m_sourcesSeen;
        return;
    }
    // Replies come in the order of the requests, each list whole.
    if (m_pendingLists.empty()) return;
    const std::uint64_t check = m_pendingLists.front();
    m_pendingLists.pop_front();
    const bool found = !failed && m_sourcesSeen > 0;
    m_sourcesSeen = 0;
    answerLocked(check, found);
}

void PulseSourceMonitor::answerLocked(std::uint64_t check, bool hasSource) {
    if (m_hasSource.exchange(hasSource) != hasSource) {
        if (hasSource)
            qCInfo(lcApp, "The audio server offers a source to record from");
        else
            qCInfo(lcApp, "No audio source: the audio server is unreachable or has no input");
    }
    if (check > m_answeredCheck.load()) m_answeredCheck.store(check);
    pa_threaded_mainloop_signal(m_mainloop, 0);
    notifyMainThread();
}

void PulseSourceMonitor::failLocked() {
    m_failed = true;
    m_pendingLists.clear();
    m_sourcesSeen = 0;
    // Every check handed out so far ends with "no".
    answerLocked(m_issuedChecks, false);
}

void PulseSourceMonitor::notifyMainThread() {
    QMetaObject::invokeMethod(this, &PulseSourceMonitor::onNotified, Qt::QueuedConnection);
}

// The retry and the connection deadline are timers of the main thread, so the audio thread's news
// is handed there.
void PulseSourceMonitor::onNotified() {
    bool failed = false;
    {
        LoopLock lock(m_mainloop);
        failed = m_failed;
        if (failed || (m_context && pa_context_get_state(m_context) == PA_CONTEXT_READY))
            m_connectTimeout.stop();
    }
    if (failed && !m_retry.isActive()) m_retry.start();
}

void PulseSourceMonitor::onConnectTimeout() {
    {
        LoopLock lock(m_mainloop);
        if (!m_context || m_failed || pa_context_get_state(m_context) == PA_CONTEXT_READY) return;
        if (!m_outageLogged)
            qCDebug(lcApp, "The audio server did not answer within %lld ms",
                    static_cast<long long>(connectLimit.count()));
        m_outageLogged = true;
        dropContextLocked();
        failLocked();
    }
}

void PulseSourceMonitor::reconnect() {
    LoopLock lock(m_mainloop);
    connectLocked();
}

} // namespace murmurly
