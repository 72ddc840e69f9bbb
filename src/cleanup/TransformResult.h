#pragma once

#include "cleanup/TokenUsage.h"

#include <QString>

#include <optional>

namespace murmurly {

// A successful cleanup: the cleaned transcript, trimmed and never empty, and the token counts
// when the provider reported them (never for the on-device provider).
struct TransformResult {
    QString text;
    std::optional<TokenUsage> usage;

    friend bool operator==(const TransformResult&, const TransformResult&) = default;
};

} // namespace murmurly
