#include "records/HistoryEntry.h"

#include "core/JsonFields.h"
#include "core/ReferenceDate.h"
#include "core/Uuid.h"

namespace murmurly {

QDateTime HistoryEntry::date() const { return ReferenceDate::dateTime(timestamp); }

nlohmann::ordered_json HistoryEntry::toJsonObject() const {
    nlohmann::ordered_json object;
    object["id"] = JsonFields::utf8(Uuid::text(id));
    object["timestamp"] = timestamp;
    object["rawText"] = JsonFields::utf8(rawText);
    if (cleanedText) object["cleanedText"] = JsonFields::utf8(*cleanedText);
    object["providerName"] = JsonFields::utf8(providerName);
    if (appBundleID) object["appBundleID"] = JsonFields::utf8(*appBundleID);
    return object;
}

std::optional<HistoryEntry> HistoryEntry::fromJsonObject(const nlohmann::json& object) {
    const auto idText = JsonFields::string(object, "id");
    const auto timestamp = JsonFields::number(object, "timestamp");
    const auto rawText = JsonFields::string(object, "rawText");
    const auto providerName = JsonFields::string(object, "providerName");
    if (!idText || !timestamp || !rawText || !providerName) return std::nullopt;
    const auto id = Uuid::parse(*idText);
    if (!id) return std::nullopt;
    bool ok = true;
    auto cleanedText = JsonFields::optionalString(object, "cleanedText", ok);
    auto appBundleID = JsonFields::optionalString(object, "appBundleID", ok);
    if (!ok) return std::nullopt;
    return HistoryEntry{*id, *timestamp, *rawText, std::move(cleanedText), *providerName, std::move(appBundleID)};
}

} // namespace murmurly
