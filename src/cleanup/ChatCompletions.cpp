#include "cleanup/ChatCompletions.h"

#include "cleanup/CleanedText.h"
#include "core/JsonFields.h"

namespace murmurly::ChatCompletions {

using JsonFields::utf8;

std::optional<QUrl> endpoint(const QString& baseURL) {
    QString text = baseURL;
    if (text.endsWith(QLatin1Char('/'))) text.chop(1);
    text += QStringLiteral("/chat/completions");
    const QUrl url(text, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty()) return std::nullopt;
    const QString scheme = url.scheme();
    if (scheme != QLatin1String("https") && scheme != QLatin1String("http")) return std::nullopt;
    return url;
}

nlohmann::ordered_json requestBody(const QString& model, const QString& prompt, const QString& text,
                                   const std::string& schemaName, const nlohmann::ordered_json& schema) {
    nlohmann::ordered_json body;
    body["model"] = utf8(model);
    body["messages"] = nlohmann::ordered_json::array({
        {{"role", "system"}, {"content", utf8(prompt)}},
        {{"role", "user"}, {"content", utf8(text)}},
    });
    body["response_format"] = {
        {"type", "json_schema"},
        {"json_schema", {{"name", schemaName}, {"strict", true}, {"schema", schema}}},
    };
    return body;
}

std::optional<QString> firstChoiceContent(const nlohmann::json& document) {
    const nlohmann::json* choices = JsonFields::member(document, "choices");
    if (!choices || !choices->is_array() || choices->empty()) return std::nullopt;
    for (const nlohmann::json& choice : *choices)
        if (!choice.is_object()) return std::nullopt;
    const nlohmann::json* message = JsonFields::member(choices->front(), "message");
    if (!message || !message->is_object()) return std::nullopt;
    return JsonFields::string(*message, "content");
}

std::optional<TokenUsage> usage(const nlohmann::json& document) {
    const nlohmann::json* counts = JsonFields::member(document, "usage");
    if (!counts || !counts->is_object()) return std::nullopt;
    const auto input = JsonFields::int64(*counts, "prompt_tokens");
    const auto output = JsonFields::int64(*counts, "completion_tokens");
    if (!input || !output) return std::nullopt;
    return TokenUsage{*input, *output};
}

ProviderReply parseReply(const QByteArray& body) {
    QString error;
    const std::optional<nlohmann::json> document = ProviderReply::parseBody(body, error);
    if (!document) return ProviderReply::unparsable(error);
    if (!document->is_object()) return ProviderReply::unusable();
    const std::optional<QString> content = firstChoiceContent(*document);
    if (!content) return ProviderReply::unusable();
    std::optional<QString> cleaned = extractCleanedText(*content);
    if (!cleaned) return ProviderReply::unusable();
    return ProviderReply::cleanedText({std::move(*cleaned), usage(*document)});
}

} // namespace murmurly::ChatCompletions
