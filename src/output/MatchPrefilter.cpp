#include "output/MatchPrefilter.h"

#include "core/CaseFolding.h"

#include <algorithm>

namespace murmurly {

namespace {

// Substrings up to this length are hashed; vocabulary entries are rarely longer.
constexpr std::size_t maxIndexedLength = 32;

} // namespace

MatchPrefilter::MatchPrefilter(const QList<ReplacementRule>& rules) {
    for (const ReplacementRule& rule : rules)
        if (rule.enabled) m_maxLength = std::max(m_maxLength, static_cast<std::size_t>(rule.from.size()));
    m_maxLength = std::min(m_maxLength, maxIndexedLength);
}

void MatchPrefilter::textChanged() {
    m_exactBuilt = false;
    m_foldedBuilt = false;
}

bool MatchPrefilter::mayMatch(const ReplacementRule& rule, const QString& text) {
    if (rule.caseSensitive) {
        if (!m_exactBuilt) {
            m_exactSource = text;
            m_exact.build(CaseFolding::view(m_exactSource), m_maxLength);
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
