#pragma once

#include <QString>

namespace murmurly {

// The BCP-47 spelling of a language identifier: hyphens between subtags, the language in lower
// case, a four-letter script in title case, a region in upper case ("en_us" → "en-US",
// "zh-hant-tw" → "zh-Hant-TW"). Identifiers are compared in this form.
QString bcp47Identifier(const QString& identifier);

} // namespace murmurly
