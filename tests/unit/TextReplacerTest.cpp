#include "output/TextReplacer.h"
#include "output/SubstringIndex.h"

#include <gtest/gtest.h>

using namespace murmurly;

namespace {

ReplacementRule rule(const QString& from, const QString& to, bool wholeWord = true,
                     bool caseSensitive = false, bool enabled = true) {
    ReplacementRule r = ReplacementRule::create();
    r.from = from;
    r.to = to;
    r.matchWholeWord = wholeWord;
    r.caseSensitive = caseSensitive;
    r.enabled = enabled;
    return r;
}

QString apply(const QList<ReplacementRule>& rules, const char* text) {
    return TextReplacer::apply(rules, QString::fromUtf8(text));
}

} // namespace

TEST(ReplacementRule, NewRuleHasTheDefaults) {
    const ReplacementRule r = ReplacementRule::create();
    EXPECT_FALSE(r.id.isNull());
    EXPECT_TRUE(r.from.isEmpty());
    EXPECT_TRUE(r.to.isEmpty());
    EXPECT_TRUE(r.matchWholeWord);
    EXPECT_FALSE(r.caseSensitive);
    EXPECT_TRUE(r.enabled);
    EXPECT_NE(ReplacementRule::create().id, r.id);
}

TEST(ReplacementRule, EqualityComparesTheIdToo) {
    const ReplacementRule a = rule("x", "y");
    ReplacementRule b = a;
    EXPECT_EQ(a, b);
    b.id = QUuid::createUuid();
    EXPECT_NE(a, b);
}

TEST(ReplacementRule, JsonRoundTrips) {
    const ReplacementRule r =
        rule(QString::fromUtf8("naïve \"q\" \\"), QStringLiteral("$1\n"), false, true, false);
    const auto decoded = ReplacementRule::fromJsonObject(nlohmann::json(r.toJsonObject()));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(*decoded, r);
    const QByteArray text = QByteArray::fromStdString(r.toJsonObject().dump());
    EXPECT_TRUE(
        text.startsWith("{\"id\":\"" + r.id.toString(QUuid::WithoutBraces).toUpper().toLatin1() + "\""));
}

TEST(ReplacementRule, JsonRuleWithoutEnabledFailsToDecode) {
    const auto object = nlohmann::json::parse(
        R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","from":"a","to":"b","matchWholeWord":true,"caseSensitive":false})");
    EXPECT_FALSE(ReplacementRule::fromJsonObject(object));
}

TEST(ReplacementRule, JsonWithWrongTypesFailsAndExtraKeysAreIgnored) {
    const char* base =
        R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","from":"a","to":"b","matchWholeWord":true,"caseSensitive":false,"enabled":true)";
    EXPECT_TRUE(ReplacementRule::fromJsonObject(nlohmann::json::parse(std::string(base) + R"(,"note":1})")));
    const char* bad[] = {
        R"({"id":"nope","from":"a","to":"b","matchWholeWord":true,"caseSensitive":false,"enabled":true})",
        R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","from":1,"to":"b","matchWholeWord":true,"caseSensitive":false,"enabled":true})",
        R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","from":"a","to":null,"matchWholeWord":true,"caseSensitive":false,"enabled":true})",
        R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","from":"a","to":"b","matchWholeWord":1,"caseSensitive":false,"enabled":true})",
    };
    for (const char* json : bad)
        EXPECT_FALSE(ReplacementRule::fromJsonObject(nlohmann::json::parse(json))) << json;
}

TEST(TextReplacer, RulesChainInListOrder) {
    const QList<ReplacementRule> forward{rule("teh", "the"), rule("the", "THE")};
    EXPECT_EQ(apply(forward, "teh cat"), QStringLiteral("THE cat"));
    const QList<ReplacementRule> backward{rule("the", "THE"), rule("teh", "the")};
    EXPECT_EQ(apply(backward, "teh cat"), QStringLiteral("the cat"));
}

TEST(TextReplacer, WholeWordCaseInsensitiveMatchesOnlyWholeWords) {
    EXPECT_EQ(apply({rule("api", "X")}, "API apis Api"), QStringLiteral("X apis X"));
    EXPECT_EQ(apply({rule("api", "X", false)}, "API apis Api"), QStringLiteral("X Xs X"));
}

TEST(TextReplacer, CaseSensitiveRuleLeavesOtherCasesUntouched) {
    EXPECT_EQ(apply({rule("Api", "X", true, true)}, "API"), QStringLiteral("API"));
    EXPECT_EQ(apply({rule("Api", "X", true, true)}, "Api API"), QStringLiteral("X API"));
}

TEST(TextReplacer, FromIsALiteralNotAPattern) {
    EXPECT_EQ(apply({rule("a.b", "Z", false)}, "axb a.b"), QStringLiteral("axb Z"));
    EXPECT_EQ(apply({rule("a+(b)?[c]{2}|^$\\", "Z", false)}, "a+(b)?[c]{2}|^$\\ aab"),
              QStringLiteral("Z aab"));
}

TEST(TextReplacer, ToIsInsertedLiterally) {
    EXPECT_EQ(apply({rule("x", "$1 \\n")}, "a x b"), QStringLiteral("a $1 \\n b"));
    EXPECT_EQ(apply({rule("x", "$0\\\\$")}, "x"), QStringLiteral("$0\\\\$"));
}

TEST(TextReplacer, WholeWordBoundariesAreAddedEvenAroundPunctuation) {
    EXPECT_EQ(apply({rule("e.g.", "for example")}, "see e.g. this"), QStringLiteral("see e.g. this"));
    EXPECT_EQ(apply({rule("e.g.", "Y")}, "e.g.x"), QStringLiteral("Yx"));
    EXPECT_EQ(apply({rule("e.g.", "for example", false)}, "see e.g. this"),
              QStringLiteral("see for example this"));
}

TEST(TextReplacer, DisabledRuleOrEmptyFromChangesNothing) {
    EXPECT_EQ(apply({rule("cat", "dog", true, false, false)}, "cat"), QStringLiteral("cat"));
    EXPECT_EQ(apply({rule("", "dog"), rule("", "dog", false)}, "cat"), QStringLiteral("cat"));
}

TEST(TextReplacer, SpacesOnlyFromIsAValidRule) {
    EXPECT_EQ(apply({rule("  ", " ", false)}, "a  b"), QStringLiteral("a b"));
}

TEST(TextReplacer, EmptyListReturnsTheTextUnchanged) {
    EXPECT_EQ(apply({}, "Hello"), QStringLiteral("Hello"));
}

TEST(TextReplacer, MatchesAreNonOverlappingFromLeftToRight) {
    EXPECT_EQ(apply({rule("aa", "b", false)}, "aaaaa"), QStringLiteral("bba"));
}

TEST(TextReplacer, CaseInsensitiveMatchingFollowsUnicodeCaseFolding) {
    EXPECT_EQ(apply({rule(QString::fromUtf8("straße"), "X")}, "STRASSE Straße"), QStringLiteral("X X"));
    EXPECT_EQ(apply({rule(QString::fromUtf8("σοφία"), "X")}, "ΣΟΦΊΑ"), QStringLiteral("X"));
    EXPECT_EQ(apply({rule("k", "X", false)}, "\u212A"), QStringLiteral("X")); // Kelvin sign
}

TEST(TextReplacer, WordBoundariesTreatLettersDigitsAndUnderscoreAsWordCharacters) {
    EXPECT_EQ(apply({rule("cat", "X")}, "cat_ cat1 cat, écat cat"), QString::fromUtf8("cat_ cat1 X, écat X"));
}

TEST(TextReplacer, RangesAreUtf16SoTextAroundEmojiSurvives) {
    EXPECT_EQ(apply({rule("ok", "fine")}, "😀 ok 😀ok"), QString::fromUtf8("😀 fine 😀fine"));
}

TEST(TextReplacer, EscapedPatternBackslashesEveryAsciiPunctuationCharacter) {
    EXPECT_EQ(TextReplacer::escapedPattern(QStringLiteral("a.b*c")), QStringLiteral("a\\.b\\*c"));
    EXPECT_EQ(TextReplacer::escapedPattern(QString::fromUtf8("ü ß")), QString::fromUtf8("ü ß"));
}

TEST(SubstringIndex, EverySubstringOfTheTextMayBeContainedWhateverItsLength) {
    const std::u16string text = u"the quick brown fox jumps over the lazy dog, then the dog sleeps";
    SubstringIndex index;
    index.build(text, 1000);
    for (std::size_t start = 0; start < text.size(); ++start)
        for (std::size_t length = 1; start + length <= text.size(); ++length)
            ASSERT_TRUE(index.mayContain(std::u16string_view(text).substr(start, length)))
                << start << "+" << length;
}

TEST(SubstringIndex, StringsThatAreNotInTheTextAreRuledOut) {
    const std::u16string text = u"the quick brown fox jumps over the lazy dog, then the dog sleeps";
    SubstringIndex index;
    index.build(text, 1000);
    for (const std::u16string_view absent :
         {u"cat", u"quick brown cat", u"the lazy dog, then the cat sleeps", u"xyz", u"dogs",
          u"the quick brown fox jumps over the lazy dog, then the dog sleeps!"})
        EXPECT_FALSE(index.mayContain(absent)) << std::string(absent.begin(), absent.end());
}

TEST(SubstringIndex, MemoryPerCharacterStaysSmallWhateverTheLongestNeedle) {
    std::u16string text;
    for (int i = 0; text.size() < 100000; ++i)
        text += u"word" + std::u16string(1, static_cast<char16_t>(u'a' + i % 26)) + u" ";
    SubstringIndex index;
    for (const std::size_t longest :
         {std::size_t(4), std::size_t(32), std::size_t(40), std::size_t(100000)}) {
        index.build(text, longest);
        EXPECT_LE(index.memoryUsed(), SubstringIndex::bytesPerCharacter * text.size()) << longest;
    }
    EXPECT_LE(SubstringIndex::bytesPerCharacter, 64u);
}
