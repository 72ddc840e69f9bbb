#include "speech/AudioInput.h"

#include "core/LatencyTrace.h"
#include "core/Log.h"
#include "speech/AudioConverter.h"
#include "speech/MurmurlyError.h"

#include <cmath>
#include <limits>

namespace murmurly {

AudioInput::AudioInput(std::unique_ptr<CaptureDevice> device)
    : m_device(std::move(device))
    , m_state(std::make_shared<CaptureState>()) {
}

AudioInput::~AudioInput() {
    m_device->stop();
}

std::int64_t AudioInput::outputCapacity(double ratio, std::int64_t frames) {
    const double product = ratio * double(frames);
    if (!std::isfinite(product) || product < 0 || product > double(std::numeric_limits<std::int32_t>::max()))
        qFatal("Audio conversion capacity out of range: ratio %f, %lld frames", ratio,
               static_cast<long long>(frames));
    return std::int64_t(product) + converterHeadroomFrames;
}

void AudioInput::start(const AudioFormat& targetFormat, InputHandler onBuffer) {
    const AudioFormat inputFormat = m_device->inputFormat();
    std::shared_ptr<AudioConverter> converter = AudioConverter::create(inputFormat, targetFormat);
    if (!converter) throw MurmurlyError::audioConverterUnavailable();

    m_state->converter.store(std::move(converter));
    m_state->bufferCount.store(0);

    std::weak_ptr<CaptureState> weakState = m_state;
    m_device->start(tapBufferFrames,
                    [weakState, onBuffer = std::move(onBuffer)](const AudioBuffer& captured) {
                        handleCaptured(weakState, onBuffer, captured);
                    });
}

void AudioInput::stop() {
    m_device->stop();
    m_state->converter.store(nullptr);
    qCInfo(lcApp, "Audio stopped after %ld buffers", long(m_state->bufferCount.load()));
}

std::int64_t AudioInput::bufferCount() const {
    return m_state->bufferCount.load();
}

void AudioInput::handleCaptured(const std::weak_ptr<CaptureState>& weakState, const InputHandler& onBuffer,
                                const AudioBuffer& captured) {
    const std::shared_ptr<CaptureState> state = weakState.lock();
    if (!state) return;
    // Held for the whole conversion, so a stop() on the main thread cannot free it underneath.
    const std::shared_ptr<AudioConverter> converter = state->converter.load();
    std::optional<AudioBuffer> converted = convert(converter.get(), captured);
    if (!converted) return;

    const std::int64_t count = state->bufferCount.fetch_add(1) + 1;
    if (count == 1) LatencyTrace::mark(LatencyTrace::firstAudioFrame);
    if (count % progressLogInterval == 1)
        qCDebug(lcApp, "Audio buffer #%ld, %u frames @ %f Hz", long(count),
                unsigned(converted->frameLength()), converted->format().sampleRate);
    onBuffer(AnalyzerInput{std::move(*converted)});
}

std::optional<AudioBuffer> AudioInput::convert(AudioConverter* converter, const AudioBuffer& captured) {
    if (!converter) return std::nullopt;
    const double ratio = converter->outputFormat().sampleRate / converter->inputFormat().sampleRate;
    std::optional<AudioBuffer> output =
        AudioBuffer::allocate(converter->outputFormat(), outputCapacity(ratio, captured.frameLength()));
    if (!output) return std::nullopt;

    // The whole captured buffer goes in at once; with the capacity above the resampler always
    // takes all of it, and keeps its filter state for the next buffer.
    const AudioConverter::Result result = converter->convert(captured, *output);
    if (!result.error.isEmpty()) {
        qCCritical(lcApp, "Audio conversion failed: %s", qUtf8Printable(result.error));
        return std::nullopt;
    }
    if (result.status == AudioConverter::Status::error) return std::nullopt;
    if (output->frameLength() <= 0) return std::nullopt;
    return output;
}

} // namespace murmurly
