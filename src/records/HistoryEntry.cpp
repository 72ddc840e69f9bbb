#include "records/HistoryEntry.h"

#include "core/JsonFields.h"
#include "core/JsonWriter.h"
#include "core/ReferenceDate.h"
#include "core/Uuid.h"

namespace murmurly {

QDateTime HistoryEntry::date() const {
    return ReferenceDate::dateTime(timestamp);
}

void HistoryEntry::appendJson(QByteArray& out) const {
    out.append("{\"id\":");
    JsonWriter::appendString(out, Uuid::text(id));
    out.append(",\"timestamp\":");
    JsonWriter::appendNumber(out, timestamp);
    out.append(",\"rawText\":");
    JsonWriter::appendString(out, rawText);
    if (cleanedText) {
        out.append(",\"cleanedText\":");
        JsonWriter::appendString(out, *cleanedText);
    }
    out.append(",\"providerName\":");
    JsonWriter::appendString(out, providerName);
    if (appBundleID) {
        out.append(",\"appBundleID\":");
        JsonWriter::appendString(out, *appBundleID);
    }
    out.append('}');
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
    return HistoryEntry{
        *id, *timestamp, *rawText, std::move(cleanedText), *providerName, std::move(appBundleID)};
}

} // namespace murmurly
