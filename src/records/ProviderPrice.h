#pragma once

#include <nlohmann/json.hpp>

#include <optional>

namespace murmurly {

// Estimated US dollars per million tokens for one provider's default model.
struct ProviderPrice {
    double inputPer1M = 0;
    double outputPer1M = 0;

    nlohmann::ordered_json toJsonObject() const;
    static std::optional<ProviderPrice> fromJsonObject(const nlohmann::json& object);

    friend bool operator==(const ProviderPrice&, const ProviderPrice&) = default;
};

} // namespace murmurly
