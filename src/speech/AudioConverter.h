#pragma once

#include "speech/AudioBuffer.h"
#include "speech/AudioFormat.h"

#include <QString>

#include <memory>
#include <vector>

struct soxr;

namespace murmurly {

// Converts captured audio into the recognizer's format: channels are mixed down (or copied up)
// first, then libsoxr resamples and writes the output sample type. The resampler keeps its filter
// state from one buffer to the next, so a stream converted buffer by buffer sounds the same as one
// converted whole.
class AudioConverter {
public:
    enum class Status { haveData, inputRanDry, error };

    struct Result {
        Status status = Status::error;
        QString error; // set only when the resampler itself reported a failure
        // Input frames taken. The resampler takes no more than the output room can hold once
        // resampled, so output room of at least ratio × input frames means all of them.
        std::int64_t inputFramesUsed = 0;
    };

    // Nothing when the pair cannot be converted: a rate or channel count that is not positive,
    // or channel counts other than equal, many to one or one to many.
    static std::unique_ptr<AudioConverter> create(const AudioFormat& input, const AudioFormat& output);
    ~AudioConverter();
    AudioConverter(const AudioConverter&) = delete;
    AudioConverter& operator=(const AudioConverter&) = delete;

    const AudioFormat& inputFormat() const { return m_input; }
    const AudioFormat& outputFormat() const { return m_output; }

    // Converts all of `input` (in inputFormat()) and appends what the resampler releases to
    // `output` (in outputFormat()), up to its capacity. `inputRanDry` when nothing came out yet.
    Result convert(const AudioBuffer& input, AudioBuffer& output);

    // Output frames the resampler holds back for now: its filter delay and the part of a block
    // it has not released yet (tens of milliseconds at speech rates).
    double pendingOutputFrames() const;

private:
    AudioConverter(const AudioFormat& input, const AudioFormat& output, soxr* resampler);

    // Brings `frames` input frames to float samples with the output's channel count.
    const float* remix(const AudioBuffer& input, std::int64_t frames);

    AudioFormat m_input;
    AudioFormat m_output;
    soxr* m_resampler;
    std::vector<float> m_scratch; // grows to the largest buffer seen, then is reused
};

} // namespace murmurly
