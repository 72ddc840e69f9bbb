#pragma once

#include "output/ReplacementRule.h"
#include "output/SubstringIndex.h"

#include <QList>
#include <QString>

#include <string>
#include <vector>

namespace murmurly {

// Tells cheaply whether a rule can match the current text at all. A match of a literal pattern
// needs `from` in the text: exactly when case-sensitive, and, when not, `from` case-folded
// (Unicode full case folding, which is what case-insensitive matching compares) in the folded
// text. Whole-word boundaries only narrow that further. The indexes are built on first use and
// then follow the text's changes.
class MatchPrefilter {
public:
    // Where a rewrite put new text: `length` characters from `start` of the new text (none when
    // the replacement was empty, which still joins what was on either side).
    struct Change {
        qsizetype start = 0;
        qsizetype length = 0;
    };

    explicit MatchPrefilter(const QList<ReplacementRule>& rules);

    bool mayMatch(const ReplacementRule& rule, const QString& text);
    // `text` is the new text, `changes` every place a rewrite changed, in any order.
    void textChanged(const QString& text, const std::vector<Change>& changes);

private:
    std::size_t m_maxLength = 0;
    bool m_exactBuilt = false;
    bool m_foldedBuilt = false;
    bool m_foldFailed = false;
    std::u16string m_foldedText;
    std::u16string m_scratch;
    SubstringIndex m_exact;
    SubstringIndex m_folded;
};

} // namespace murmurly
