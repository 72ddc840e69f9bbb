#pragma once

#include <QByteArray>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QUuid>

#include <nlohmann/json.hpp>

#include <optional>

namespace murmurly {

// One vocabulary entry: literal text the recognizer tends to get wrong, and what it should read.
struct ReplacementRule {
    QUuid id;
    QString from;
    QString to;
    bool matchWholeWord = true;
    bool caseSensitive = false;
    bool enabled = true;

    // A new rule as the program creates it: fresh id, empty texts, whole word, any case, enabled.
    static ReplacementRule create();

    // {"id","from","to","matchWholeWord","caseSensitive","enabled"}; all six required on reading,
    // unknown members ignored.
    nlohmann::ordered_json toJsonObject() const;
    static std::optional<ReplacementRule> fromJsonObject(const nlohmann::json& object);

    // A JSON array of rule objects; one bad object fails the whole array.
    static std::optional<QList<ReplacementRule>> decodeArray(const QByteArray& json);

    friend bool operator==(const ReplacementRule&, const ReplacementRule&) = default;
};

} // namespace murmurly

Q_DECLARE_METATYPE(murmurly::ReplacementRule)
