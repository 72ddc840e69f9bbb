// The replacer skips rules that cannot match before compiling them. These tests check that the
// result is the same as running every rule through its own regular-expression pass, on random
// rule sets built from an alphabet full of case-folding and word-boundary traps.
#include "output/TextReplacer.h"

#include <gtest/gtest.h>

#include <random>

using namespace murmurly;

namespace {

const QStringList& alphabet() {
    static const QStringList pieces = [] {
        QStringList p;
        for (const char* s : {"a", "b", "A", "B", "s", "S", "k",  "K", "i", "I", "e",
                              " ", " ", ".", "_", "1", "$", "\\", "-", "'", "\n"})
            p << QString::fromLatin1(s);
        for (const char* s : {"ß", "ẞ", "ſ", "K" /* Kelvin */, "İ", "ı", "ﬁ", "Σ", "σ", "ς", "é", "e\u0301",
                              "😀", "ǅ", "ǆ", "Ǆ", "ΐ"})
            p << QString::fromUtf8(s);
        return p;
    }();
    return pieces;
}

QString randomText(std::mt19937& rng, int minPieces, int maxPieces) {
    std::uniform_int_distribution<int> count(minPieces, maxPieces);
    std::uniform_int_distribution<qsizetype> pick(0, alphabet().size() - 1);
    QString text;
    for (int n = count(rng); n > 0; --n)
        text += alphabet().at(pick(rng));
    return text;
}

QList<ReplacementRule> randomRules(std::mt19937& rng, int count) {
    std::bernoulli_distribution coin(0.5);
    std::bernoulli_distribution mostly(0.85);
    QList<ReplacementRule> rules;
    for (int i = 0; i < count; ++i) {
        ReplacementRule rule = ReplacementRule::create();
        rule.from = randomText(rng, 0, 3);
        rule.to = randomText(rng, 0, 3);
        rule.matchWholeWord = coin(rng);
        rule.caseSensitive = coin(rng);
        rule.enabled = mostly(rng);
        rules.append(rule);
    }
    return rules;
}

} // namespace

TEST(TextReplacerIdentity, SameResultAsEveryRuleInTurnOnRandomRuleSets) {
    std::mt19937 rng(20261121);
    for (int round = 0; round < 1500; ++round) {
        const QList<ReplacementRule> rules = randomRules(rng, 1 + round % 12);
        const QString text = randomText(rng, 0, 40);
        ASSERT_EQ(TextReplacer::apply(rules, text), TextReplacer::applyEveryRule(rules, text))
            << "round " << round;
    }
}

TEST(TextReplacerIdentity, SameResultWithManyRulesAndLongerFroms) {
    std::mt19937 rng(7);
    for (int round = 0; round < 40; ++round) {
        QList<ReplacementRule> rules = randomRules(rng, 300);
        // Some entries longer than the prefilter indexes, and some taken from the text itself.
        const QString text = randomText(rng, 50, 200);
        for (int i = 0; i < 20; ++i) {
            const qsizetype start = static_cast<qsizetype>(rng() % static_cast<unsigned>(text.size()));
            rules[i * 7].from = text.mid(start, 1 + static_cast<qsizetype>(rng() % 50u));
        }
        ASSERT_EQ(TextReplacer::apply(rules, text), TextReplacer::applyEveryRule(rules, text))
            << "round " << round;
    }
}

TEST(TextReplacerIdentity, SameResultWithFromsLongerThanTheIndexedPiecesAndNearMisses) {
    std::mt19937 rng(99);
    for (int round = 0; round < 200; ++round) {
        QList<ReplacementRule> rules = randomRules(rng, 30);
        const QString text = randomText(rng, 40, 300);
        // Long entries cut from the text, some with one character changed, so that most of their
        // pieces occur in the text and only one does not.
        for (int i = 0; i < 10; ++i) {
            const qsizetype length = 9 + static_cast<qsizetype>(rng() % 60u);
            const qsizetype start = static_cast<qsizetype>(rng() % static_cast<unsigned>(text.size()));
            QString from = text.mid(start, length);
            if (i % 2 == 1 && !from.isEmpty()) {
                const qsizetype at = static_cast<qsizetype>(rng() % static_cast<unsigned>(from.size()));
                from[at] = from[at] == QLatin1Char('a') ? QLatin1Char('b') : QLatin1Char('a');
            }
            rules[i * 3].from = from;
        }
        ASSERT_EQ(TextReplacer::apply(rules, text), TextReplacer::applyEveryRule(rules, text))
            << "round " << round;
    }
}
