#pragma once

#include "speech/AudioBuffer.h"
#include "speech/AudioFormat.h"

#include <cstdint>
#include <functional>

namespace murmurly {

// The microphone: buffers in the device's own format, delivered on a capture thread.
class CaptureDevice {
public:
    // Called on the capture thread, one captured buffer at a time; it must not block.
    using BufferHandler = std::function<void(const AudioBuffer&)>;

    virtual ~CaptureDevice() = default;

    // The format the device captures in. Throws CaptureError when there is nothing to capture from.
    virtual AudioFormat inputFormat() = 0;

    // Begins delivering buffers of about `framesPerBuffer` frames in inputFormat() to `onBuffer`.
    // Throws CaptureError; after a failure stop() is still called by the owner.
    virtual void start(std::int64_t framesPerBuffer, BufferHandler onBuffer) = 0;

    // Ends capture. Audio captured but not yet delivered is delivered first; once this returns,
    // `onBuffer` is not called again. Safe to call at any time, also without start().
    virtual void stop() = 0;
};

} // namespace murmurly
