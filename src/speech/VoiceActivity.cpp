#include "speech/VoiceActivity.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace murmurly {

std::chrono::milliseconds VoiceActivity::voicedTime(const std::int16_t* samples, std::int64_t count,
                                                    int sampleRate) {
    if (sampleRate <= 0 || count <= 0) return std::chrono::milliseconds::zero();
    const std::int64_t frameSamples = std::max<std::int64_t>(1, sampleRate * frameLength.count() / 1000);
    const std::int64_t frames = count / frameSamples;
    if (frames == 0) return std::chrono::milliseconds::zero();

    std::vector<double> levels(static_cast<std::size_t>(frames));
    for (std::int64_t f = 0; f < frames; ++f) {
        const std::int16_t* frame = samples + f * frameSamples;
        double energy = 0;
        for (std::int64_t i = 0; i < frameSamples; ++i)
            energy += double(frame[i]) * double(frame[i]);
        const double rms = std::sqrt(energy / double(frameSamples)) / 32768.0;
        // Digital silence has no level at all.
        levels[static_cast<std::size_t>(f)] =
            rms > 0 ? 20.0 * std::log10(rms) : -std::numeric_limits<double>::infinity();
    }

    std::vector<double> sorted = levels;
    const auto floorAt = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 10);
    std::nth_element(sorted.begin(), floorAt, sorted.end());
    const double threshold = std::max(minimumLevelDbfs, *floorAt + aboveFloorDb);

    const auto voiced =
        std::count_if(levels.begin(), levels.end(), [&](double level) { return level >= threshold; });
    return std::chrono::milliseconds(voiced * frameLength.count());
}

} // namespace murmurly
