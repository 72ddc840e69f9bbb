#pragma once

#include "cleanup/ProviderReply.h"

#include <QByteArray>
#include <QString>

#include <nlohmann/json.hpp>

namespace murmurly::AnthropicMessages {

inline constexpr int maxTokens = 4096;

// {"model", "max_tokens", "system", "output_config": {"format": {"type": "json_schema",
// "schema": …}}, "messages": [{"role": "user", "content": text}]}: no temperature, stop
// sequences, tools or streaming.
nlohmann::ordered_json requestBody(const QString& model, const QString& prompt, const QString& text);

// Reads a 200 reply: a refusal stop reason wins over any text; otherwise the "text" blocks'
// strings are joined without separator and must hold the cleaned-text object. Usage is kept
// only when "input_tokens" and "output_tokens" are both integers.
ProviderReply parseReply(const QByteArray& body);

} // namespace murmurly::AnthropicMessages
