#pragma once

#include <cstdint>

namespace murmurly {

// Token counts of one cleanup as the provider reported them.
struct TokenUsage {
    std::int64_t inputTokens = 0;
    std::int64_t outputTokens = 0;

    friend bool operator==(const TokenUsage&, const TokenUsage&) = default;
};

} // namespace murmurly
