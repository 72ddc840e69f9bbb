#include "cleanup/ProviderReply.h"

#include "core/JsonFields.h"

namespace murmurly {

std::optional<nlohmann::json> ProviderReply::parseBody(const QByteArray& body, QString& error) {
    if (JsonFields::nestsDeeperThan(body)) {
        error = QStringLiteral("The reply nests arrays or objects more than %1 deep.")
                    .arg(JsonFields::maxNestingDepth);
        return std::nullopt;
    }
    try {
        nlohmann::json document = nlohmann::json::parse(body.constBegin(), body.constEnd());
        if (!document.is_object() && !document.is_array()) {
            error = QStringLiteral("The reply's top-level JSON value is neither an object nor an array.");
            return std::nullopt;
        }
        return document;
    } catch (const nlohmann::json::parse_error& e) {
        error = QStringLiteral("The reply is not valid JSON (byte %1 of %2).").arg(e.byte).arg(body.size());
        return std::nullopt;
    } catch (const nlohmann::json::exception&) {
        // The parser reports a number too large for any numeric type this way.
        error = QStringLiteral("The reply holds a JSON number out of range.");
        return std::nullopt;
    }
}

std::optional<QByteArray> ProviderReply::serialise(const nlohmann::ordered_json& body, QString& error) {
    try {
        const std::string text = body.dump();
        return QByteArray(text.data(), static_cast<qsizetype>(text.size()));
    } catch (const nlohmann::json::exception& e) {
        error = QString::fromUtf8(e.what());
        return std::nullopt;
    }
}

} // namespace murmurly
