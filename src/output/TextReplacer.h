#pragma once

#include "output/ReplacementRule.h"

#include <QList>
#include <QString>

#include <optional>

namespace murmurly::TextReplacer {

// Applies the rules in list order, each to the text the previous ones produced. Rules that are
// disabled or have an empty `from` are skipped. Never fails.
QString apply(const QList<ReplacementRule>& rules, const QString& text);

// The same result as apply(), reached the plain way: every rule's regular expression run in turn,
// none skipped beforehand. The reference the tests, fuzzer and benchmark hold apply() against.
QString applyEveryRule(const QList<ReplacementRule>& rules, const QString& text);

// One rule's pass: `from` escaped to a literal ICU pattern (wrapped in \b…\b for whole words,
// case-insensitive unless case-sensitive), every non-overlapping match from left to right
// replaced by `to` taken literally. Nothing when the rule is skipped, its pattern does not
// compile, or nothing matches.
std::optional<QString> replaceMatches(const ReplacementRule& rule, const QString& text);

// The text with a backslash before every ASCII character that could be a regex metacharacter,
// so that each character matches itself.
QString escapedPattern(const QString& literal);

} // namespace murmurly::TextReplacer
