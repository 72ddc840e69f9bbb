#include "records/ProviderPrice.h"

#include "core/JsonFields.h"

namespace murmurly {

nlohmann::ordered_json ProviderPrice::toJsonObject() const {
    nlohmann::ordered_json object;
    object["inputPer1M"] = inputPer1M;
    object["outputPer1M"] = outputPer1M;
    return object;
}

std::optional<ProviderPrice> ProviderPrice::fromJsonObject(const nlohmann::json& object) {
    const auto input = JsonFields::number(object, "inputPer1M");
    const auto output = JsonFields::number(object, "outputPer1M");
    if (!input || !output) return std::nullopt;
    return ProviderPrice{*input, *output};
}

} // namespace murmurly
