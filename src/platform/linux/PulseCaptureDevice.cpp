#include "platform/linux/PulseCaptureDevice.h"

#include "speech/CaptureError.h"

#include <pulse/pulseaudio.h>

#include <cstring>

namespace murmurly {

namespace {

using Clock = std::chrono::steady_clock;

QString errorText(pa_context* context) {
    return QString::fromUtf8(pa_strerror(context ? pa_context_errno(context) : PA_ERR_UNKNOWN));
}

// RAII lock of the threaded main loop.
class MainloopLock {
public:
    explicit MainloopLock(pa_threaded_mainloop* mainloop)
        : m_mainloop(mainloop) {
        pa_threaded_mainloop_lock(m_mainloop);
    }
    ~MainloopLock() { pa_threaded_mainloop_unlock(m_mainloop); }
    MainloopLock(const MainloopLock&) = delete;
    MainloopLock& operator=(const MainloopLock&) = delete;

private:
    pa_threaded_mainloop* m_mainloop;
};

void signalMainloop(pa_mainloop_api*, pa_time_event*, const struct timeval*, void* mainloop) {
    pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop*>(mainloop), 0);
}

} // namespace

PulseCaptureDevice::PulseCaptureDevice(QString applicationName)
    : m_applicationName(std::move(applicationName)) {
}

PulseCaptureDevice::~PulseCaptureDevice() {
    if (!m_mainloop) return;
    {
        MainloopLock lock(m_mainloop);
        stopStreamLocked();
        disconnectLocked();
    }
    pa_threaded_mainloop_stop(m_mainloop);
    pa_threaded_mainloop_free(m_mainloop);
}

bool PulseCaptureDevice::waitLocked(const std::function<bool()>& done, std::chrono::milliseconds limit) {
    if (done()) return true;
    // A timer on the loop wakes this wait at the deadline even if the server never answers.
    pa_mainloop_api* api = pa_threaded_mainloop_get_api(m_mainloop);
    struct timeval deadline;
    pa_gettimeofday(&deadline);
    pa_timeval_add(&deadline,
                   pa_usec_t(std::chrono::duration_cast<std::chrono::microseconds>(limit).count()));
    pa_time_event* timer = api->time_new(api, &deadline, &signalMainloop, m_mainloop);
    const auto end = Clock::now() + limit;
    bool ok = false;
    while (!(ok = done()) && Clock::now() < end)
        pa_threaded_mainloop_wait(m_mainloop);
    api->time_free(timer);
    return ok;
}

void PulseCaptureDevice::onContextState(pa_context*, void* self) {
    pa_threaded_mainloop_signal(static_cast<PulseCaptureDevice*>(self)->m_mainloop, 0);
}

void PulseCaptureDevice::onStreamState(pa_stream*, void* self) {
    pa_threaded_mainloop_signal(static_cast<PulseCaptureDevice*>(self)->m_mainloop, 0);
}

void PulseCaptureDevice::connectLocked() {
    if (m_context && pa_context_get_state(m_context) == PA_CONTEXT_READY) return;
    disconnectLocked(); // a context that failed (server gone) is replaced

    m_context =
        pa_context_new(pa_threaded_mainloop_get_api(m_mainloop), m_applicationName.toUtf8().constData());
    if (!m_context) throw CaptureError(QStringLiteral("Could not create an audio server connection."));
    pa_context_set_state_callback(m_context, &PulseCaptureDevice::onContextState, this);
    // Never start a server of our own: capture goes through the one the desktop runs, or fails.
    if (pa_context_connect(m_context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        const QString reason = errorText(m_context);
        disconnectLocked();
        throw CaptureError(QStringLiteral("Could not connect to the audio server: %1.").arg(reason));
    }
    const bool settled = waitLocked(
        [this] {
            const pa_context_state_t state = pa_context_get_state(m_context);
            return state == PA_CONTEXT_READY || !PA_CONTEXT_IS_GOOD(state);
        },
        operationTimeout);
    if (!settled || pa_context_get_state(m_context) != PA_CONTEXT_READY) {
        const QString reason = settled ? errorText(m_context) : QStringLiteral("no answer");
        disconnectLocked();
        throw CaptureError(QStringLiteral("Could not connect to the audio server: %1.").arg(reason));
    }
}

void PulseCaptureDevice::disconnectLocked() {
    if (!m_context) return;
    pa_context_set_state_callback(m_context, nullptr, nullptr);
    pa_context_disconnect(m_context);
    pa_context_unref(m_context);
    m_context = nullptr;
}

PulseCaptureDevice::Source PulseCaptureDevice::defaultSourceLocked() {
    struct Query {
        PulseCaptureDevice* self = nullptr;
        bool done = false;
        QString name;
        std::optional<pa_sample_spec> spec;
    } query;
    query.self = this;

    auto wait = [&](pa_operation* operation) {
        if (!operation) return false;
        const bool done = waitLocked([&] { return query.done; }, operationTimeout);
        if (!done) pa_operation_cancel(operation);
        pa_operation_unref(operation);
        return done;
    };

    pa_operation* serverInfo = pa_context_get_server_info(
        m_context,
        [](pa_context*, const pa_server_info* info, void* data) {
            auto* q = static_cast<Query*>(data);
            if (info && info->default_source_name) q->name = QString::fromUtf8(info->default_source_name);
            q->done = true;
            pa_threaded_mainloop_signal(q->self->m_mainloop, 0);
        },
        &query);
    if (!wait(serverInfo)) throw CaptureError(QStringLiteral("The audio server did not answer."));

    // Without a configured default, the server's own choice (if it has any source) is asked for.
    const QByteArray name = query.name.isEmpty() ? QByteArray("@DEFAULT_SOURCE@") : query.name.toUtf8();
    query.done = false;
    pa_operation* sourceInfo = pa_context_get_source_info_by_name(
        m_context, name.constData(),
        [](pa_context*, const pa_source_info* info, int eol, void* data) {
            auto* q = static_cast<Query*>(data);
            if (info && !q->spec) {
                q->spec = info->sample_spec;
                q->name = QString::fromUtf8(info->name);
            }
            if (eol != 0) {
                q->done = true;
                pa_threaded_mainloop_signal(q->self->m_mainloop, 0);
            }
        },
        &query);
    if (!wait(sourceInfo)) throw CaptureError(QStringLiteral("The audio server did not answer."));
    if (!query.spec)
        throw CaptureError(
            QStringLiteral("No microphone is available: the audio server has no input source."));
    return {query.name, AudioFormat::float32(query.spec->rate, query.spec->channels)};
}

AudioFormat PulseCaptureDevice::inputFormat() {
    if (!m_mainloop) {
        m_mainloop = pa_threaded_mainloop_new();
        if (!m_mainloop || pa_threaded_mainloop_start(m_mainloop) < 0)
            throw CaptureError(QStringLiteral("Could not start the audio thread."));
    }
    MainloopLock lock(m_mainloop);
    connectLocked();
    return defaultSourceLocked().format;
}

void PulseCaptureDevice::start(std::int64_t framesPerBuffer, BufferHandler onBuffer) {
    inputFormat(); // creates the loop and connects if needed
    MainloopLock lock(m_mainloop);
    stopStreamLocked();
    const Source source = defaultSourceLocked();

    m_handler = std::move(onBuffer);
    m_framesPerBuffer = std::max<std::int64_t>(1, framesPerBuffer);
    m_pending = AudioBuffer::allocate(source.format, m_framesPerBuffer);
    if (!m_pending) throw CaptureError(QStringLiteral("Not enough memory to record."));
    m_deliveredFirst = false;

    pa_sample_spec spec;
    spec.format = PA_SAMPLE_FLOAT32NE;
    spec.rate = uint32_t(source.format.sampleRate);
    spec.channels = uint8_t(source.format.channels);
    m_stream = pa_stream_new(m_context, "Dictation", &spec, nullptr);
    if (!m_stream) throw CaptureError(QStringLiteral("Could not record: %1.").arg(errorText(m_context)));
    pa_stream_set_state_callback(m_stream, &PulseCaptureDevice::onStreamState, this);
    pa_stream_set_read_callback(m_stream, &PulseCaptureDevice::onStreamRead, this);

    // Small fragments keep the delay from speech to recognizer short; the server does not batch
    // them up because of ADJUST_LATENCY.
    pa_buffer_attr attributes;
    std::memset(&attributes, 0xff, sizeof attributes); // (uint32_t)-1: the server's choice
    attributes.fragsize = uint32_t(pa_usec_to_bytes(
        pa_usec_t(std::chrono::duration_cast<std::chrono::microseconds>(fragmentDuration).count()), &spec));
    const QByteArray sourceName = source.name.toUtf8();
    if (pa_stream_connect_record(m_stream, sourceName.constData(), &attributes, PA_STREAM_ADJUST_LATENCY) <
        0) {
        const QString reason = errorText(m_context);
        stopStreamLocked();
        throw CaptureError(QStringLiteral("Could not record from %1: %2.").arg(source.name, reason));
    }
    const bool settled = waitLocked(
        [this] {
            const pa_stream_state_t state = pa_stream_get_state(m_stream);
            return state == PA_STREAM_READY || !PA_STREAM_IS_GOOD(state);
        },
        operationTimeout);
    if (!settled || pa_stream_get_state(m_stream) != PA_STREAM_READY) {
        const QString reason = settled ? errorText(m_context) : QStringLiteral("no answer");
        stopStreamLocked();
        throw CaptureError(QStringLiteral("Could not record from %1: %2.").arg(source.name, reason));
    }
}

void PulseCaptureDevice::onStreamRead(pa_stream*, size_t, void* self) {
    // On the client library's thread, with the loop locked.
    static_cast<PulseCaptureDevice*>(self)->readAvailableLocked();
}

void PulseCaptureDevice::readAvailableLocked() {
    if (!m_stream || !m_pending) return;
    const int frameBytes = m_pending->format().bytesPerFrame();
    while (pa_stream_readable_size(m_stream) > 0) {
        const void* data = nullptr;
        size_t bytes = 0;
        if (pa_stream_peek(m_stream, &data, &bytes) < 0 || bytes == 0) break;
        if (data) {
            const auto* in = static_cast<const std::byte*>(data);
            std::int64_t frames = std::int64_t(bytes) / frameBytes;
            while (frames > 0) {
                const std::int64_t room = m_pending->frameCapacity() - m_pending->frameLength();
                const std::int64_t take = std::min(room, frames);
                std::memcpy(m_pending->data() + m_pending->frameLength() * frameBytes, in,
                            std::size_t(take * frameBytes));
                m_pending->setFrameLength(m_pending->frameLength() + take);
                in += take * frameBytes;
                frames -= take;
                if (m_pending->frameLength() == m_pending->frameCapacity()) deliverLocked();
            }
            // The first audio goes out at once, so recognition starts without waiting for a full buffer.
            if (!m_deliveredFirst && m_pending->frameLength() > 0) deliverLocked();
        }
        // A hole (data == nullptr) is skipped: there is nothing to hand on for it.
        pa_stream_drop(m_stream);
    }
}

void PulseCaptureDevice::deliverLocked() {
    if (!m_pending || m_pending->frameLength() == 0) return;
    m_deliveredFirst = true;
    if (m_handler) m_handler(*m_pending);
    m_pending->setFrameLength(0); // the same memory is filled again: no allocation per buffer
}

void PulseCaptureDevice::stopStreamLocked() {
    if (!m_stream) return;
    // What has reached us is handed over before the stream ends.
    if (pa_stream_get_state(m_stream) == PA_STREAM_READY) readAvailableLocked();
    deliverLocked();
    pa_stream_set_read_callback(m_stream, nullptr, nullptr);
    pa_stream_set_state_callback(m_stream, nullptr, nullptr);
    pa_stream_disconnect(m_stream);
    pa_stream_unref(m_stream);
    m_stream = nullptr;
}

void PulseCaptureDevice::stop() {
    if (!m_mainloop) return;
    MainloopLock lock(m_mainloop);
    stopStreamLocked();
    m_handler = nullptr;
    m_pending.reset();
}

} // namespace murmurly
