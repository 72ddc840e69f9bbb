#pragma once

#include "speech/AudioFormat.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace murmurly {

// One block of interleaved PCM frames in a known format: room for `frameCapacity` frames, of
// which the first `frameLength` hold audio.
class AudioBuffer {
public:
    // A zeroed buffer, or nothing when the capacity is negative or the memory cannot be had.
    static std::optional<AudioBuffer> allocate(const AudioFormat& format, std::int64_t frameCapacity);

    const AudioFormat& format() const { return m_format; }
    std::int64_t frameCapacity() const { return m_frameCapacity; }
    std::int64_t frameLength() const { return m_frameLength; }
    // Clamped to the capacity.
    void setFrameLength(std::int64_t frames);

    std::byte* data() { return m_bytes.data(); }
    const std::byte* data() const { return m_bytes.data(); }
    float* floatSamples() { return reinterpret_cast<float*>(m_bytes.data()); }
    const float* floatSamples() const { return reinterpret_cast<const float*>(m_bytes.data()); }
    std::int16_t* int16Samples() { return reinterpret_cast<std::int16_t*>(m_bytes.data()); }
    const std::int16_t* int16Samples() const { return reinterpret_cast<const std::int16_t*>(m_bytes.data()); }

    // Seconds of audio held.
    double duration() const {
        return m_format.sampleRate > 0 ? double(m_frameLength) / m_format.sampleRate : 0;
    }

private:
    AudioBuffer(const AudioFormat& format, std::int64_t frameCapacity);

    AudioFormat m_format;
    std::int64_t m_frameCapacity = 0;
    std::int64_t m_frameLength = 0;
    std::vector<std::byte> m_bytes;
};

} // namespace murmurly
