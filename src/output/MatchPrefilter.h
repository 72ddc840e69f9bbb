#pragma once

#include "output/ReplacementRule.h"
#include "output/SubstringIndex.h"

#include <QList>
#include <QString>

#include <string>

namespace murmurly {

// Tells cheaply whether a rule can match the current text at all. A match of a literal pattern
// needs `from` in the text: exactly when case-sensitive, and, when not, `from` case-folded
// (Unicode full case folding, which is what case-insensitive matching compares) in the folded
// text. Whole-word boundaries only narrow that further. The indexes are rebuilt lazily after the
// text changes.
class MatchPrefilter {
public:
    explicit MatchPrefilter(const QList<ReplacementRule>& rules);

    bool mayMatch(const ReplacementRule& rule, const QString& text);
    void textChanged();

private:
    std::size_t m_maxLength = 0;
    bool m_exactBuilt = false;
    bool m_foldedBuilt = false;
    bool m_foldFailed = false;
    std::u16string m_foldedText;
    std::u16string m_scratch;
    QString m_exactSource; // keeps the indexed text alive
    SubstringIndex m_exact;
    SubstringIndex m_folded;
};

} // namespace murmurly
