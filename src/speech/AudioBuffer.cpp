#include "speech/AudioBuffer.h"

#include <algorithm>
#include <new>

namespace murmurly {

AudioBuffer::AudioBuffer(const AudioFormat& format, std::int64_t frameCapacity)
    : m_format(format)
    , m_frameCapacity(frameCapacity)
    , m_bytes(std::size_t(frameCapacity) * std::size_t(format.bytesPerFrame())) {
}

std::optional<AudioBuffer> AudioBuffer::allocate(const AudioFormat& format, std::int64_t frameCapacity) {
    if (frameCapacity < 0 || format.channels <= 0) return std::nullopt;
    try {
        return AudioBuffer(format, frameCapacity);
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    } catch (const std::length_error&) {
        return std::nullopt;
    }
}

void AudioBuffer::setFrameLength(std::int64_t frames) {
    m_frameLength = std::clamp<std::int64_t>(frames, 0, m_frameCapacity);
}

} // namespace murmurly
