#include "output/ReplacementRule.h"

#include "core/JsonFields.h"
#include "core/Uuid.h"

namespace murmurly {

ReplacementRule ReplacementRule::create() {
    ReplacementRule rule;
    rule.id = Uuid::create();
    return rule;
}

nlohmann::ordered_json ReplacementRule::toJsonObject() const {
    nlohmann::ordered_json object;
    object["id"] = JsonFields::utf8(Uuid::text(id));
    object["from"] = JsonFields::utf8(from);
    object["to"] = JsonFields::utf8(to);
    object["matchWholeWord"] = matchWholeWord;
    object["caseSensitive"] = caseSensitive;
    object["enabled"] = enabled;
    return object;
}

std::optional<ReplacementRule> ReplacementRule::fromJsonObject(const nlohmann::json& object) {
    const auto idText = JsonFields::string(object, "id");
    const auto from = JsonFields::string(object, "from");
    const auto to = JsonFields::string(object, "to");
    const auto wholeWord = JsonFields::boolean(object, "matchWholeWord");
    const auto caseSensitive = JsonFields::boolean(object, "caseSensitive");
    const auto enabled = JsonFields::boolean(object, "enabled");
    if (!idText || !from || !to || !wholeWord || !caseSensitive || !enabled) return std::nullopt;
    const auto id = Uuid::parse(*idText);
    if (!id) return std::nullopt;
    return ReplacementRule{*id, *from, *to, *wholeWord, *caseSensitive, *enabled};
}

std::optional<QList<ReplacementRule>> ReplacementRule::decodeArray(const QByteArray& json) {
    const auto array = JsonFields::parse(json);
    if (!array.is_array()) return std::nullopt;
    QList<ReplacementRule> rules;
    rules.reserve(static_cast<qsizetype>(array.size()));
    for (const auto& object : array) {
        auto rule = fromJsonObject(object);
        if (!rule) return std::nullopt;
        rules.append(std::move(*rule));
    }
    return rules;
}

} // namespace murmurly
