#include "records/ProviderUsage.h"

#include "core/JsonFields.h"

namespace murmurly {

nlohmann::ordered_json ProviderUsage::toJsonObject() const {
    nlohmann::ordered_json object;
    object["dictations"] = dictations;
    object["inputTokens"] = inputTokens;
    object["outputTokens"] = outputTokens;
    return object;
}

std::optional<ProviderUsage> ProviderUsage::fromJsonObject(const nlohmann::json& object) {
    const auto dictations = JsonFields::int64(object, "dictations");
    const auto inputTokens = JsonFields::int64(object, "inputTokens");
    const auto outputTokens = JsonFields::int64(object, "outputTokens");
    if (!dictations || !inputTokens || !outputTokens) return std::nullopt;
    return ProviderUsage{*dictations, *inputTokens, *outputTokens};
}

} // namespace murmurly
