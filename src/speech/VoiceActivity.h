#pragma once

#include <chrono>
#include <cstdint>

namespace murmurly {

// Decides from the signal's energy whether a recording holds speech, so that silence or a steady
// background hum is never sent to a transcription server (large speech models answer silence with
// invented sentences). The recording is cut into 20 ms frames; a frame counts as voiced when its
// level is at least minimumLevelDbfs and at least aboveFloorDb louder than the recording's own
// quiet level (the 10th percentile of its frame levels). A recording holds speech when its voiced
// frames add up to at least minimumSpeech.
class VoiceActivity {
public:
    static constexpr double minimumLevelDbfs = -50.0;
    static constexpr double aboveFloorDb = 12.0;
    static constexpr std::chrono::milliseconds frameLength{20};
    static constexpr std::chrono::milliseconds minimumSpeech{200};

    // Voiced time in mono 16-bit samples at `sampleRate`.
    static std::chrono::milliseconds voicedTime(const std::int16_t* samples, std::int64_t count,
                                                int sampleRate);
    static bool containsSpeech(const std::int16_t* samples, std::int64_t count, int sampleRate) {
        return voicedTime(samples, count, sampleRate) >= minimumSpeech;
    }
};

} // namespace murmurly
