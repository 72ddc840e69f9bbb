#pragma once

#include "speech/AnalyzerInput.h"
#include "speech/AudioBuffer.h"
#include "speech/AudioFormat.h"
#include "speech/CaptureDevice.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace murmurly {

class AudioConverter;

// Records the microphone while a dictation runs and hands every captured buffer on, converted
// to the recognizer's format, as one analyzer input. Nothing is queued here: each buffer is
// passed on from the capture thread as soon as it is converted.
class AudioInput {
public:
    // Called on the capture thread, once per converted buffer; it must not block.
    using InputHandler = std::function<void(AnalyzerInput)>;

    static constexpr std::int64_t tapBufferFrames = 4096;
    static constexpr std::int64_t converterHeadroomFrames = 16;
    // The progress line is written for buffers 1, 21, 41, …
    static constexpr std::int64_t progressLogInterval = 20;

    // The device is kept for the life of this object and reused for every dictation.
    explicit AudioInput(std::unique_ptr<CaptureDevice> device);
    ~AudioInput();
    AudioInput(const AudioInput&) = delete;
    AudioInput& operator=(const AudioInput&) = delete;

    // Starts capturing and converting to `targetFormat`. Throws MurmurlyError
    // (audioConverterUnavailable) when the microphone's format cannot be converted, or the
    // device's own CaptureError. After a failure the caller still calls stop().
    void start(const AudioFormat& targetFormat, InputHandler onBuffer);

    // Ends capture and logs how many buffers were handed on. Safe at any time.
    void stop();

    // Buffers converted and handed on since the last start().
    std::int64_t bufferCount() const;

    CaptureDevice& device() { return *m_device; }

    // Room for one converted buffer: the integer part of ratio × frames, plus headroom for what
    // the resampler carries over from earlier buffers.
    static std::int64_t outputCapacity(double ratio, std::int64_t frames);

private:
    // What the capture thread touches. It holds this weakly, so a late buffer after the object is
    // gone is dropped instead of keeping the object alive.
    struct CaptureState {
        std::atomic<std::shared_ptr<AudioConverter>> converter;
        std::atomic<std::int64_t> bufferCount{0};
    };

    static void handleCaptured(const std::weak_ptr<CaptureState>& weakState, const InputHandler& onBuffer,
                               const AudioBuffer& captured);
    static std::optional<AudioBuffer> convert(AudioConverter* converter, const AudioBuffer& captured);

    std::unique_ptr<CaptureDevice> m_device;
    std::shared_ptr<CaptureState> m_state;
};

} // namespace murmurly
