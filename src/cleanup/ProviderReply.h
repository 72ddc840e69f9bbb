#pragma once

#include "cleanup/TransformResult.h"

#include <QByteArray>
#include <QString>

#include <nlohmann/json.hpp>

#include <optional>

namespace murmurly {

// What a provider made of a 200 reply body. Only `cleaned` carries a result; the transformer
// logs `unparsable` (with `error`) and `refused`, and drops `unusable` silently.
struct ProviderReply {
    enum class Kind { cleaned, unparsable, refused, unusable };

    Kind kind = Kind::unusable;
    std::optional<TransformResult> result;
    QString error;

    static ProviderReply cleanedText(TransformResult result) {
        return {Kind::cleaned, std::move(result), {}};
    }
    static ProviderReply unparsable(QString error) {
        return {Kind::unparsable, std::nullopt, std::move(error)};
    }
    static ProviderReply refused() { return {Kind::refused, std::nullopt, {}}; }
    static ProviderReply unusable() { return {Kind::unusable, std::nullopt, {}}; }

    // Parses a reply body the way a JSON reader with default options does: the top level must be
    // an object or an array, and bytes that are not UTF-8 JSON are an error. The error text tells
    // where parsing stopped but never quotes the body, which may hold the user's words.
    static std::optional<nlohmann::json> parseBody(const QByteArray& body, QString& error);

    // Serialises a request body; absent (with `error`) only when a string is not valid UTF-8.
    static std::optional<QByteArray> serialise(const nlohmann::ordered_json& body, QString& error);
};

} // namespace murmurly
