#include "output/MatchPrefilter.h"

#include "core/CaseFolding.h"

#include <algorithm>

namespace murmurly {

namespace {

// The part of `text` that every substring of up to gramLength characters touching `change`
// lies in, widened so that it never splits a surrogate pair. Case folding never shortens a
// character, so after folding it still holds every folded substring touching the change.
std::u16string_view surroundings(std::u16string_view text, const MatchPrefilter::Change& change) {
    const auto context = static_cast<qsizetype>(SubstringIndex::gramLength);
    const auto size = static_cast<qsizetype>(text.size());
    qsizetype begin = std::clamp<qsizetype>(change.start - context, 0, size);
    qsizetype end = std::clamp<qsizetype>(change.start + change.length + context, 0, size);
    if (begin > 0 && QChar::isLowSurrogate(text[static_cast<std::size_t>(begin)])) --begin;
    if (end < size && QChar::isHighSurrogate(text[static_cast<std::size_t>(end - 1)])) ++end;
    return text.substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(end - begin));
}

} // namespace

MatchPrefilter::MatchPrefilter(const QList<ReplacementRule>& rules) {
    for (const ReplacementRule& rule : rules)
        if (rule.enabled) m_maxLength = std::max(m_maxLength, static_cast<std::size_t>(rule.from.size()));
}

void MatchPrefilter::textChanged(const QString& text, const std::vector<Change>& changes) {
    const std::u16string_view view = CaseFolding::view(text);
    for (const Change& change : changes) {
        const std::u16string_view piece = surroundings(view, change);
        if (m_exactBuilt) m_exactBuilt = m_exact.add(piece);
        if (m_foldedBuilt && !m_foldFailed)
            m_foldedBuilt = CaseFolding::fold(piece, m_scratch) && m_folded.add(m_scratch);
    }
    // A text that could not be folded is tried again as it is now.
    if (m_foldFailed) m_foldedBuilt = false;
}

bool MatchPrefilter::mayMatch(const ReplacementRule& rule, const QString& text) {
    if (rule.caseSensitive) {
        if (!m_exactBuilt) {
            m_exact.build(CaseFolding::view(text), m_maxLength);
            m_exactBuilt = true;
        }
        return m_exact.mayContain(CaseFolding::view(rule.from));
    }
    if (!m_foldedBuilt) {
        m_foldFailed = !CaseFolding::fold(CaseFolding::view(text), m_foldedText);
        if (!m_foldFailed) m_folded.build(m_foldedText, m_maxLength);
        m_foldedBuilt = true;
    }
    // Whatever cannot be folded is handed to the regular expression, which decides.
    if (m_foldFailed || !CaseFolding::fold(CaseFolding::view(rule.from), m_scratch)) return true;
    return m_folded.mayContain(m_scratch);
}

} // namespace murmurly
