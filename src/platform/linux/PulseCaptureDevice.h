#pragma once

#include "speech/AudioBuffer.h"
#include "speech/CaptureDevice.h"

#include <QString>

#include <chrono>
#include <functional>
#include <optional>

struct pa_threaded_mainloop;
struct pa_context;
struct pa_stream;

namespace murmurly {

// The microphone through the PulseAudio client API (served by PulseAudio itself and by
// PipeWire's pipewire-pulse): a record stream on the default source, in the source's own rate and
// channel count as float samples, read on the client library's own thread.
//
// Buffers of `framesPerBuffer` frames are assembled from small server fragments, except the very
// first, which is handed over as soon as it arrives so that recognition starts within a few tens
// of milliseconds. stop() hands over what has arrived before ending the stream, so nothing said
// before the release is lost. Every wait on the server is bounded: without a server or without a
// source, inputFormat() and start() fail with a CaptureError within operationTimeout.
class PulseCaptureDevice final : public CaptureDevice {
public:
    static constexpr std::chrono::milliseconds operationTimeout{3000};
    // How much audio the server sends at a time.
    static constexpr std::chrono::milliseconds fragmentDuration{20};

    explicit PulseCaptureDevice(QString applicationName = QStringLiteral("Murmurly"));
    ~PulseCaptureDevice() override;
    PulseCaptureDevice(const PulseCaptureDevice&) = delete;
    PulseCaptureDevice& operator=(const PulseCaptureDevice&) = delete;

    AudioFormat inputFormat() override;
    void start(std::int64_t framesPerBuffer, BufferHandler onBuffer) override;
    void stop() override;

private:
    struct Source {
        QString name;
        AudioFormat format;
    };

    // All of these run with the main loop locked.
    void connectLocked();
    Source defaultSourceLocked();
    void disconnectLocked();
    void stopStreamLocked();
    bool waitLocked(const std::function<bool()>& done, std::chrono::milliseconds limit);
    void readAvailableLocked();
    void deliverLocked();

    static void onContextState(pa_context* context, void* self);
    static void onStreamState(pa_stream* stream, void* self);
    static void onStreamRead(pa_stream* stream, size_t bytes, void* self);

    const QString m_applicationName;
    pa_threaded_mainloop* m_mainloop = nullptr;
    pa_context* m_context = nullptr;
    pa_stream* m_stream = nullptr;

    BufferHandler m_handler;
    std::optional<AudioBuffer> m_pending; // the buffer being filled
    std::int64_t m_framesPerBuffer = 4096;
    bool m_deliveredFirst = false;
};

} // namespace murmurly
