#pragma once

#include <QString>

#include <nlohmann/json.hpp>

namespace murmurly::CleanupPrompt {

// The system prompt every provider is given. Its last two sentences keep the model from taking
// the transcript as a message addressed to it.
extern const QString system;

// The reply the HTTP providers ask for: an object whose only member, "cleaned_text", is a
// string. Member order is kept as written.
extern const nlohmann::ordered_json jsonSchema;

} // namespace murmurly::CleanupPrompt
