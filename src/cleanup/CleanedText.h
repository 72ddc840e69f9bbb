#pragma once

#include <QString>

#include <optional>

namespace murmurly {

// The cleaned text of a model's reply, which must be exactly one JSON object whose member
// "cleaned_text" is a string that is not empty once white space and new lines are trimmed from
// both ends. Anything else is absent: there is deliberately no fallback (no code-fence stripping,
// no search for an object inside prose, no use of plain text), since the providers ask the
// endpoints for structured output. Logs nothing.
std::optional<QString> extractCleanedText(const QString& reply);

} // namespace murmurly
