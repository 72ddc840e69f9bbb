#pragma once

#include "speech/AudioBuffer.h"

namespace murmurly {

// What the recognizer is fed: one buffer already in the recognizer's own format.
struct AnalyzerInput {
    AudioBuffer buffer;
};

} // namespace murmurly
