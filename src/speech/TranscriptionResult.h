#pragma once

#include <QString>

namespace murmurly {

// One piece of recognized speech. Final results are settled; others may still change.
struct TranscriptionResult {
    QString text;
    bool isFinal = false;
};

} // namespace murmurly
