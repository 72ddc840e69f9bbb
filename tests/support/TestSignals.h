#pragma once

#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

namespace murmurly::testing {

// 16-bit test signals at a given rate: silence, and sine tones at a level in dBFS (of the tone's
// RMS).
inline std::vector<std::int16_t> silence(int sampleRate, double seconds) {
    return std::vector<std::int16_t>(static_cast<std::size_t>(sampleRate * seconds), 0);
}

inline std::vector<std::int16_t> tone(int sampleRate, double seconds, double levelDbfs,
                                      double frequency = 440) {
    const double amplitude = std::sqrt(2.0) * std::pow(10.0, levelDbfs / 20.0) * 32767.0;
    std::vector<std::int16_t> out(static_cast<std::size_t>(sampleRate * seconds));
    for (std::size_t i = 0; i < out.size(); ++i)
        out[i] = static_cast<std::int16_t>(
            std::lround(amplitude * std::sin(2 * std::numbers::pi * frequency * double(i) / sampleRate)));
    return out;
}

inline std::vector<std::int16_t> joined(std::initializer_list<std::vector<std::int16_t>> pieces) {
    std::vector<std::int16_t> out;
    for (const auto& piece : pieces)
        out.insert(out.end(), piece.begin(), piece.end());
    return out;
}

} // namespace murmurly::testing
