#pragma once

#include "speech/CaptureDevice.h"
#include "speech/CaptureError.h"

#include <optional>

namespace murmurly::testing {

// A microphone the test plays: it reports a chosen format and hands over the buffers the test
// gives it, on the calling thread. The handler is kept after stop() so that a test can play a
// late capture callback.
class FakeCaptureDevice final : public CaptureDevice {
public:
    explicit FakeCaptureDevice(AudioFormat format = AudioFormat::float32(48000, 2))
        : m_format(format) {}

    AudioFormat inputFormat() override {
        if (m_formatError) throw CaptureError(*m_formatError);
        return m_format;
    }
    void start(std::int64_t framesPerBuffer, BufferHandler onBuffer) override {
        ++m_starts;
        m_framesPerBuffer = framesPerBuffer;
        m_handler = std::move(onBuffer);
        if (m_startError) throw CaptureError(*m_startError);
        m_running = true;
    }
    void stop() override {
        ++m_stops;
        m_running = false;
    }

    // Hands `buffer` to the handler of the last start(), running or not.
    void deliver(const AudioBuffer& buffer) {
        if (m_handler) m_handler(buffer);
    }

    void setFormat(const AudioFormat& format) { m_format = format; }
    void failFormatWith(const QString& description) { m_formatError = description; }
    void failStartWith(const QString& description) { m_startError = description; }

    bool isRunning() const { return m_running; }
    int starts() const { return m_starts; }
    int stops() const { return m_stops; }
    std::int64_t framesPerBuffer() const { return m_framesPerBuffer; }

private:
    AudioFormat m_format;
    BufferHandler m_handler;
    std::optional<QString> m_formatError;
    std::optional<QString> m_startError;
    bool m_running = false;
    int m_starts = 0;
    int m_stops = 0;
    std::int64_t m_framesPerBuffer = 0;
};

} // namespace murmurly::testing
