#pragma once

#include <QDateTime>
#include <QMetaType>
#include <QString>
#include <QUuid>

#include <nlohmann/json.hpp>

#include <optional>

namespace murmurly {

// One finished dictation as the history keeps it.
struct HistoryEntry {
    QUuid id;
    double timestamp = 0; // seconds since 2001-01-01 00:00:00 UTC
    QString rawText;
    std::optional<QString> cleanedText; // the final text; absent when it equals rawText
    QString providerName;               // cleanup provider's display name, or "—" when cleanup was off
    std::optional<QString> appBundleID; // the application focused at the press

    QDateTime date() const;

    // Appends the entry's JSON object, keys in declaration order; absent optionals are left out.
    void appendJson(QByteArray& out) const;
    // On reading the optionals may be missing or null; the other four members are required.
    static std::optional<HistoryEntry> fromJsonObject(const nlohmann::json& object);

    friend bool operator==(const HistoryEntry&, const HistoryEntry&) = default;
};

} // namespace murmurly

Q_DECLARE_METATYPE(murmurly::HistoryEntry)
