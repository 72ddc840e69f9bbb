#pragma once

#include <QString>

#include <string>
#include <string_view>

namespace murmurly::CaseFolding {

inline std::u16string_view view(const QString& text) {
    return {reinterpret_cast<const char16_t*>(text.constData()), static_cast<std::size_t>(text.size())};
}

// Unicode full case folding (ICU's default), into `out`. False only if ICU cannot fold, which
// does not happen on valid input.
bool fold(std::u16string_view source, std::u16string& out);

// Case-insensitive substring test on folded text ("straße" contains "SS").
bool containsIgnoringCase(const QString& text, const QString& query);

} // namespace murmurly::CaseFolding
