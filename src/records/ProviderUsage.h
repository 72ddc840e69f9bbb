#pragma once

#include <QMetaType>

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>

namespace murmurly {

// Cleanups counted for one provider and the tokens they consumed.
struct ProviderUsage {
    std::int64_t dictations = 0;
    std::int64_t inputTokens = 0;
    std::int64_t outputTokens = 0;

    // {"dictations","inputTokens","outputTokens"}, all three required on reading.
    nlohmann::ordered_json toJsonObject() const;
    static std::optional<ProviderUsage> fromJsonObject(const nlohmann::json& object);

    friend bool operator==(const ProviderUsage&, const ProviderUsage&) = default;
};

} // namespace murmurly

Q_DECLARE_METATYPE(murmurly::ProviderUsage)
