#include "output/TextReplacer.h"

#include "output/MatchPrefilter.h"

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <memory>
#include <vector>

namespace murmurly::TextReplacer {

namespace {

icu::UnicodeString aliasOf(const QString& text) {
    // A read-only alias: no copy of the transcript for ICU.
    return icu::UnicodeString(false, reinterpret_cast<const char16_t*>(text.constData()),
                              static_cast<int32_t>(text.size()));
}

bool isPatternSyntax(char16_t c) {
    return c < 0x80 && c > 0x20 &&
           !((c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z'));
}

} // namespace

QString escapedPattern(const QString& literal) {
    QString escaped;
    escaped.reserve(literal.size() * 2);
    for (const QChar c : literal) {
        if (isPatternSyntax(c.unicode())) escaped.append(QLatin1Char('\\'));
        escaped.append(c);
    }
    return escaped;
}

namespace {

// replaceMatches(), noting in `changes` (when given) where each replacement landed in the result.
std::optional<QString> replaceNoting(const ReplacementRule& rule, const QString& text,
                                     std::vector<MatchPrefilter::Change>* changes) {
    if (!rule.enabled || rule.from.isEmpty()) return std::nullopt;

    QString patternText = escapedPattern(rule.from);
    if (rule.matchWholeWord) patternText = QStringLiteral("\\b") + patternText + QStringLiteral("\\b");
    const uint32_t flags = rule.caseSensitive ? 0 : UREGEX_CASE_INSENSITIVE;

    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError{};
    const std::unique_ptr<icu::RegexPattern> pattern(
        icu::RegexPattern::compile(aliasOf(patternText), flags, parseError, status));
    if (U_FAILURE(status) || !pattern) return std::nullopt;

    const icu::UnicodeString input = aliasOf(text);
    const std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(input, status));
    if (U_FAILURE(status) || !matcher) return std::nullopt;

    // Matches are replaced by `to` verbatim: no template expansion, so "$1" and "\n" stay as typed.
    QString result;
    qsizetype copied = 0;
    bool matched = false;
    while (matcher->find(status) && U_SUCCESS(status)) {
        const int32_t start = matcher->start(status);
        const int32_t end = matcher->end(status);
        if (U_FAILURE(status)) return std::nullopt;
        if (!matched) result.reserve(text.size() + rule.to.size());
        matched = true;
        result.append(QStringView(text).mid(copied, start - copied));
        if (changes) changes->push_back({result.size(), rule.to.size()});
        result.append(rule.to);
        copied = end;
    }
    if (!matched || U_FAILURE(status)) return std::nullopt;
    result.append(QStringView(text).mid(copied));
    return result;
}

} // namespace

std::optional<QString> replaceMatches(const ReplacementRule& rule, const QString& text) {
    return replaceNoting(rule, text, nullptr);
}

QString applyEveryRule(const QList<ReplacementRule>& rules, const QString& text) {
    QString current = text;
    for (const ReplacementRule& rule : rules)
        if (auto replaced = replaceMatches(rule, current)) current = std::move(*replaced);
    return current;
}

QString apply(const QList<ReplacementRule>& rules, const QString& text) {
    QString current = text;
    MatchPrefilter prefilter(rules);
    std::vector<MatchPrefilter::Change> changes;
    for (const ReplacementRule& rule : rules) {
        if (!rule.enabled || rule.from.isEmpty()) continue;
        // Only rules whose `from` occurs in the text (up to case) can match; the rest are skipped
        // without compiling a pattern, which gives the same result as running them.
        if (!prefilter.mayMatch(rule, current)) continue;
        changes.clear();
        if (auto replaced = replaceNoting(rule, current, &changes)) {
            current = std::move(*replaced);
            prefilter.textChanged(current, changes);
        }
    }
    return current;
}

} // namespace murmurly::TextReplacer
