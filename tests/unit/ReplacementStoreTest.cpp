#include "output/ReplacementStore.h"
#include "MemoryDefaults.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace murmurly;
using murmurly::testing::MemoryDefaults;

namespace {

ReplacementRule rule(const QString& from, const QString& to, bool enabled = true) {
    ReplacementRule r = ReplacementRule::create();
    r.from = from;
    r.to = to;
    r.enabled = enabled;
    return r;
}

} // namespace

TEST(ReplacementStore, StartsOffAndEmptyWhenNothingIsStored) {
    MemoryDefaults defaults;
    ReplacementStore store(defaults);
    EXPECT_FALSE(store.enabled());
    EXPECT_TRUE(store.rules().isEmpty());
}

TEST(ReplacementStore, ApplyReturnsInputUnchangedWhileDisabled) {
    MemoryDefaults defaults;
    ReplacementStore store(defaults);
    store.setRules({rule("teh", "the")});
    EXPECT_EQ(store.apply(QStringLiteral("teh cat")), QStringLiteral("teh cat"));
    store.setEnabled(true);
    EXPECT_EQ(store.apply(QStringLiteral("teh cat")), QStringLiteral("the cat"));
}

TEST(ReplacementStore, SettersPersistTheSwitchAndTheCompactRuleArray) {
    MemoryDefaults defaults;
    ReplacementStore store(defaults);
    const ReplacementRule r = rule("a", "b");
    store.setRules({r});
    EXPECT_EQ(defaults.boolValue(ReplacementStore::enabledKey), false);
    const QByteArray stored = defaults.bytesValue(ReplacementStore::rulesKey).value_or(QByteArray());
    EXPECT_EQ(stored, "[{\"id\":\"" + r.id.toString(QUuid::WithoutBraces).toUpper().toUtf8() +
                          "\",\"from\":\"a\",\"to\":\"b\",\"matchWholeWord\":true,\"caseSensitive\":false,"
                          "\"enabled\":true}]");
}

TEST(ReplacementStore, SwitchAndOrderSurviveARelaunch) {
    MemoryDefaults defaults;
    const QList<ReplacementRule> rules{rule("c", "3"), rule("a", "1", false), rule("b", "2")};
    {
        ReplacementStore store(defaults);
        store.setRules(rules);
        store.setEnabled(true);
    }
    ReplacementStore relaunched(defaults);
    EXPECT_TRUE(relaunched.enabled());
    EXPECT_EQ(relaunched.rules(), rules);
}

TEST(ReplacementStore, CorruptStoredRulesLoadAsEmptyUntilTheNextPersist) {
    MemoryDefaults defaults;
    defaults.setBytes(ReplacementStore::rulesKey, QByteArray("[{\"id\":1}]"));
    ReplacementStore store(defaults);
    EXPECT_TRUE(store.rules().isEmpty());
    EXPECT_EQ(defaults.bytesValue(ReplacementStore::rulesKey), QByteArray("[{\"id\":1}]"));
    store.setEnabled(true);
    EXPECT_EQ(defaults.bytesValue(ReplacementStore::rulesKey), QByteArray("[]"));
}

TEST(ReplacementStore, ExportWritesEveryRulePrettyWithSortedKeys) {
    MemoryDefaults defaults;
    ReplacementStore store(defaults);
    ReplacementRule r = rule("a", "b", false);
    r.id = QUuid::fromString(QStringLiteral("e621e1f8-c36c-495a-93fc-0c247a3e6e5f"));
    store.setRules({r});
    const auto exported = store.exportJSON();
    ASSERT_TRUE(exported);
    EXPECT_EQ(*exported, QByteArray("[\n"
                                    "  {\n"
                                    "    \"caseSensitive\": false,\n"
                                    "    \"enabled\": false,\n"
                                    "    \"from\": \"a\",\n"
                                    "    \"id\": \"E621E1F8-C36C-495A-93FC-0C247A3E6E5F\",\n"
                                    "    \"matchWholeWord\": true,\n"
                                    "    \"to\": \"b\"\n"
                                    "  }\n"
                                    "]"));
}

TEST(ReplacementStore, EmptyVocabularyExportsAsAnEmptyArray) {
    MemoryDefaults defaults;
    ReplacementStore store(defaults);
    EXPECT_EQ(store.exportJSON(), QByteArray("[]"));
}

TEST(ReplacementStore, ImportingAnExportReproducesTheSameListIdsIncluded) {
    MemoryDefaults defaults;
    ReplacementStore store(defaults);
    const QList<ReplacementRule> rules{rule(QString::fromUtf8("ünï"), "x"), rule("b", "y", false)};
    store.setRules(rules);
    const QByteArray file = *store.exportJSON();
    store.setRules({});
    EXPECT_TRUE(store.importJSON(file));
    EXPECT_EQ(store.rules(), rules);
}

TEST(ReplacementStore, ImportingAnEmptyArraySucceedsAndEmptiesTheVocabulary) {
    MemoryDefaults defaults;
    ReplacementStore store(defaults);
    store.setRules({rule("a", "b")});
    EXPECT_TRUE(store.importJSON("[]"));
    EXPECT_TRUE(store.rules().isEmpty());
    EXPECT_EQ(defaults.bytesValue(ReplacementStore::rulesKey), QByteArray("[]"));
}

TEST(ReplacementStore, ImportWithOneObjectLackingCaseSensitiveFailsAndLeavesAllRulesUntouched) {
    MemoryDefaults defaults;
    ReplacementStore store(defaults);
    const QList<ReplacementRule> rules{rule("a", "b")};
    store.setRules(rules);
    const QByteArray storedBefore = *defaults.bytesValue(ReplacementStore::rulesKey);
    QSignalSpy changed(&store, &ReplacementStore::rulesChanged);
    const QByteArray file = R"([
      {"caseSensitive":false,"enabled":true,"from":"x","id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","matchWholeWord":true,"to":"y"},
      {"enabled":true,"from":"p","id":"E621E1F8-C36C-495A-93FC-0C247A3E6E60","matchWholeWord":true,"to":"q"}
    ])";
    EXPECT_FALSE(store.importJSON(file));
    EXPECT_EQ(store.rules(), rules);
    EXPECT_EQ(defaults.bytesValue(ReplacementStore::rulesKey), storedBefore);
    EXPECT_EQ(changed.count(), 0);
}

TEST(ReplacementStore, ImportingAnObjectOrANonJsonFileReturnsFalse) {
    MemoryDefaults defaults;
    ReplacementStore store(defaults);
    store.setRules({rule("a", "b")});
    EXPECT_FALSE(store.importJSON(R"({"rules":[]})"));
    EXPECT_FALSE(store.importJSON("this is not json"));
    EXPECT_FALSE(store.importJSON(QByteArray()));
    EXPECT_EQ(store.rules().size(), 1);
}

TEST(ReplacementStore, ImportingARuleWithAnExistingIdReplacesTheWholeList) {
    MemoryDefaults defaults;
    ReplacementStore store(defaults);
    const ReplacementRule old = rule("old", "x");
    const ReplacementRule other = rule("other", "y");
    store.setRules({old, other});
    ReplacementRule same = old;
    same.from = QStringLiteral("new");
    nlohmann::json array = nlohmann::json::array({nlohmann::json(same.toJsonObject())});
    EXPECT_TRUE(store.importJSON(QByteArray::fromStdString(array.dump())));
    EXPECT_EQ(store.rules(), QList<ReplacementRule>{same});
}

TEST(ReplacementStore, ImportDoesNotChangeTheSwitch) {
    MemoryDefaults defaults;
    ReplacementStore store(defaults);
    store.setEnabled(true);
    EXPECT_TRUE(store.importJSON("[]"));
    EXPECT_TRUE(store.enabled());
}

TEST(ReplacementStore, ChangesAreSignalled) {
    MemoryDefaults defaults;
    ReplacementStore store(defaults);
    QSignalSpy enabled(&store, &ReplacementStore::enabledChanged);
    QSignalSpy rules(&store, &ReplacementStore::rulesChanged);
    store.setEnabled(true);
    store.setEnabled(true);
    store.setRules({rule("a", "b")});
    EXPECT_EQ(enabled.count(), 1);
    EXPECT_EQ(rules.count(), 1);
}

TEST(ReplacementStore, ImportNestedMoreThan64DeepIsRefusedAndLeavesTheRulesAlone) {
    MemoryDefaults defaults;
    ReplacementStore store(defaults);
    store.setRules({rule("a", "b")});
    const auto file = [](int extraDepth) {
        // The array and the rule object are the first two levels; the readers ignore "note".
        return R"([{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","from":"x","to":"y","matchWholeWord":true,)"
               R"("caseSensitive":false,"enabled":true,"note":)" +
               QByteArray(extraDepth, '[') + QByteArray(extraDepth, ']') + "}]";
    };
    ASSERT_TRUE(store.importJSON(file(62)));
    EXPECT_EQ(store.rules().size(), 1);
    EXPECT_EQ(store.rules().first().from, QStringLiteral("x"));

    EXPECT_FALSE(store.importJSON(file(63)));
    EXPECT_FALSE(store.importJSON(QByteArray(4 * 1024 * 1024, '[')));
    ASSERT_EQ(store.rules().size(), 1);
    EXPECT_EQ(store.rules().first().from, QStringLiteral("x"));
}

TEST(ReplacementStore, BracketsInsideRuleTextAreNotNesting) {
    MemoryDefaults defaults;
    ReplacementStore store(defaults);
    ReplacementRule brackets =
        rule(QString(100, QLatin1Char('[')) + QStringLiteral("\"{"), QStringLiteral("]"));
    store.setRules({brackets});
    const std::optional<QByteArray> exported = store.exportJSON();
    ASSERT_TRUE(exported);
    store.setRules({});
    ASSERT_TRUE(store.importJSON(*exported));
    ASSERT_EQ(store.rules().size(), 1);
    EXPECT_EQ(store.rules().first(), brackets);
}
