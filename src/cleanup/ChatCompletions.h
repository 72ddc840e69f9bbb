#pragma once

#include "cleanup/ProviderReply.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <nlohmann/json.hpp>

#include <optional>

namespace murmurly::ChatCompletions {

// The base URL as typed, less exactly one trailing "/", followed by "/chat/completions".
// Absent when that text is not an http or https URL with a host (spaces, stray text, no scheme):
// such a request is never sent.
std::optional<QUrl> endpoint(const QString& baseURL);

// {"model", "messages": [system prompt, user text], "response_format": {"type": "json_schema",
// "json_schema": {"name", "strict": true, "schema"}}}: no sampling, token limit or streaming.
nlohmann::ordered_json requestBody(const QString& model, const QString& prompt, const QString& text,
                                   const std::string& schemaName, const nlohmann::ordered_json& schema);

// The first choice's message content, when "choices" is a non-empty array of objects and that
// choice's "message" is an object with a string "content" (null counts as missing).
std::optional<QString> firstChoiceContent(const nlohmann::json& document);

// Usage from "prompt_tokens" and "completion_tokens" when both are integers; the total is ignored.
std::optional<TokenUsage> usage(const nlohmann::json& document);

// Reads a 200 reply of the OpenAI-compatible cleanup request.
ProviderReply parseReply(const QByteArray& body);

} // namespace murmurly::ChatCompletions
