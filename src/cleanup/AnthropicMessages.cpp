#include "cleanup/AnthropicMessages.h"

#include "cleanup/CleanedText.h"
#include "cleanup/CleanupPrompt.h"
#include "core/JsonFields.h"

namespace murmurly::AnthropicMessages {

using JsonFields::utf8;

nlohmann::ordered_json requestBody(const QString& model, const QString& prompt, const QString& text) {
    nlohmann::ordered_json body;
    body["model"] = utf8(model);
    body["max_tokens"] = maxTokens;
    body["system"] = utf8(prompt);
    body["output_config"] = {{"format", {{"type", "json_schema"}, {"schema", CleanupPrompt::jsonSchema}}}};
    body["messages"] = nlohmann::ordered_json::array({{{"role", "user"}, {"content", utf8(text)}}});
    return body;
}

ProviderReply parseReply(const QByteArray& body) {
    QString error;
    const std::optional<nlohmann::json> document = ProviderReply::parseBody(body, error);
    if (!document) return ProviderReply::unparsable(error);
    if (!document->is_object()) return ProviderReply::unusable();

    if (JsonFields::string(*document, "stop_reason") == QStringLiteral("refusal"))
        return ProviderReply::refused();

    // "content" must be an array of objects, every element included.
    const nlohmann::json* content = JsonFields::member(*document, "content");
    if (!content || !content->is_array()) return ProviderReply::unusable();
    QString joined;
    for (const nlohmann::json& block : *content) {
        if (!block.is_object()) return ProviderReply::unusable();
    }
    for (const nlohmann::json& block : *content) {
        if (JsonFields::string(block, "type") != QStringLiteral("text")) continue;
        if (const std::optional<QString> text = JsonFields::string(block, "text")) joined += *text;
    }

    std::optional<QString> cleaned = extractCleanedText(joined);
    if (!cleaned) return ProviderReply::unusable();

    std::optional<TokenUsage> usage;
    if (const nlohmann::json* counts = JsonFields::member(*document, "usage");
        counts && counts->is_object()) {
        const auto input = JsonFields::int64(*counts, "input_tokens");
        const auto output = JsonFields::int64(*counts, "output_tokens");
        if (input && output) usage = TokenUsage{*input, *output};
    }
    return ProviderReply::cleanedText({std::move(*cleaned), usage});
}

} // namespace murmurly::AnthropicMessages
