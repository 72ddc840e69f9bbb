#include "records/UsageTracker.h"
#include "MemoryDefaults.h"
#include "records/MoneyFormat.h"

#include <gtest/gtest.h>

using namespace murmurly;
using murmurly::testing::MemoryDefaults;

TEST(UsageTracker, PriceTableIsFixed) {
    MemoryDefaults defaults;
    UsageTracker tracker(defaults);
    EXPECT_EQ(tracker.prices().size(), 3);
    EXPECT_EQ(tracker.prices().value(QStringLiteral("onDevice")), (ProviderPrice{0.0, 0.0}));
    EXPECT_EQ(tracker.prices().value(QStringLiteral("anthropic")), (ProviderPrice{1.0, 5.0}));
    EXPECT_EQ(tracker.prices().value(QStringLiteral("openAICompatible")), (ProviderPrice{0.15, 0.60}));
}

TEST(UsageTracker, ThreeOnDeviceCleanupsCountThreeDictationsNoTokensAndCostNothing) {
    MemoryDefaults defaults;
    UsageTracker tracker(defaults);
    for (int i = 0; i < 3; ++i)
        tracker.record(CleanupProvider::onDevice, std::nullopt);
    const ProviderUsage usage = tracker.session().value(QStringLiteral("onDevice"));
    EXPECT_EQ(usage, (ProviderUsage{3, 0, 0}));
    EXPECT_EQ(tracker.cost(usage, QStringLiteral("onDevice")), 0.0);
    EXPECT_EQ(MoneyFormat::dollars(tracker.sessionCost()), QStringLiteral("$0.00"));
}

TEST(UsageTracker, AnthropicCleanupCostsFromItsPrices) {
    MemoryDefaults defaults;
    UsageTracker small(defaults);
    small.record(CleanupProvider::anthropic, TokenUsage{1000, 200});
    EXPECT_DOUBLE_EQ(small.sessionCost(), 0.002);
    EXPECT_EQ(MoneyFormat::dollars(small.sessionCost()), QStringLiteral("$0.0020"));

    MemoryDefaults other;
    UsageTracker large(other);
    large.record(CleanupProvider::anthropic, TokenUsage{10000, 2000});
    EXPECT_DOUBLE_EQ(large.sessionCost(), 0.02);
    EXPECT_EQ(MoneyFormat::dollars(large.sessionCost()), QStringLiteral("$0.02"));
}

TEST(UsageTracker, OneMillionTokensEachWayWithTheOpenAICompatibleProviderCost075) {
    MemoryDefaults defaults;
    UsageTracker tracker(defaults);
    tracker.record(CleanupProvider::openAICompatible, TokenUsage{1'000'000, 1'000'000});
    EXPECT_DOUBLE_EQ(tracker.sessionCost(), 0.75);
    EXPECT_DOUBLE_EQ(tracker.allTimeCost(), 0.75);
    EXPECT_EQ(MoneyFormat::dollars(tracker.allTimeCost()), QStringLiteral("$0.75"));
}

TEST(UsageTracker, CleanupWithoutTokenUsageAddsADictationAndNoTokens) {
    MemoryDefaults defaults;
    UsageTracker tracker(defaults);
    tracker.record(CleanupProvider::anthropic, TokenUsage{10, 20});
    tracker.record(CleanupProvider::anthropic, std::nullopt);
    EXPECT_EQ(tracker.allTime().value(QStringLiteral("anthropic")), (ProviderUsage{2, 10, 20}));
}

TEST(UsageTracker, AfterARelaunchSessionIsEmptyAndAllTimeHoldsTheEarlierTotals) {
    MemoryDefaults defaults;
    {
        UsageTracker tracker(defaults);
        tracker.record(CleanupProvider::anthropic, TokenUsage{1200, 150});
        tracker.record(CleanupProvider::openAICompatible, TokenUsage{5, 6});
    }
    UsageTracker relaunched(defaults);
    EXPECT_TRUE(relaunched.session().isEmpty());
    EXPECT_EQ(relaunched.allTime().value(QStringLiteral("anthropic")), (ProviderUsage{1, 1200, 150}));
    EXPECT_EQ(relaunched.allTime().value(QStringLiteral("openAICompatible")), (ProviderUsage{1, 5, 6}));
}

TEST(UsageTracker, StoredRecordWithoutOutputTokensLoadsAsAnEmptyAllTime) {
    MemoryDefaults defaults;
    const QByteArray bad = R"({"anthropic":{"dictations":3,"inputTokens":1200}})";
    defaults.setBytes(UsageTracker::allTimeKey, bad);
    UsageTracker tracker(defaults);
    EXPECT_TRUE(tracker.allTime().isEmpty());
    EXPECT_EQ(defaults.bytesValue(UsageTracker::allTimeKey), bad);
}

TEST(UsageTracker, CorruptStoredValuesLoadAsEmpty) {
    for (const QByteArray& bad :
         {QByteArray("[]"), QByteArray("nope"), QByteArray(R"({"a":1})"),
          QByteArray(R"({"a":{"dictations":"1","inputTokens":0,"outputTokens":0}})"),
          QByteArray(R"({"a":{"dictations":1.5,"inputTokens":0,"outputTokens":0}})"),
          QByteArray(R"({"a":{"dictations":1e30,"inputTokens":0,"outputTokens":0}})")}) {
        MemoryDefaults defaults;
        defaults.setBytes(UsageTracker::allTimeKey, bad);
        UsageTracker tracker(defaults);
        EXPECT_TRUE(tracker.allTime().isEmpty()) << bad.constData();
    }
}

TEST(UsageTracker, StoredFormIsTheCompactObjectOfRecordedProviders) {
    MemoryDefaults defaults;
    UsageTracker tracker(defaults);
    tracker.record(CleanupProvider::anthropic, TokenUsage{1200, 150});
    EXPECT_EQ(defaults.bytesValue(UsageTracker::allTimeKey),
              QByteArray(R"({"anthropic":{"dictations":1,"inputTokens":1200,"outputTokens":150}})"));
}

TEST(UsageTracker, ResetStoresAnEmptyObjectAndTheNextCleanupStartsAtOne) {
    MemoryDefaults defaults;
    UsageTracker tracker(defaults);
    tracker.record(CleanupProvider::anthropic, TokenUsage{1, 1});
    tracker.record(CleanupProvider::anthropic, TokenUsage{1, 1});
    tracker.reset();
    EXPECT_EQ(defaults.bytesValue(UsageTracker::allTimeKey), QByteArray("{}"));
    EXPECT_TRUE(tracker.allTime().isEmpty());
    EXPECT_TRUE(tracker.session().isEmpty());
    tracker.record(CleanupProvider::anthropic, std::nullopt);
    EXPECT_EQ(tracker.allTime().value(QStringLiteral("anthropic")).dictations, 1);
    EXPECT_EQ(tracker.session().value(QStringLiteral("anthropic")).dictations, 1);
}

TEST(UsageTracker, UnknownProviderKeysCostNothing) {
    MemoryDefaults defaults;
    defaults.setBytes(UsageTracker::allTimeKey,
                      R"({"retired":{"dictations":1,"inputTokens":5000000,"outputTokens":5}})");
    UsageTracker tracker(defaults);
    EXPECT_EQ(tracker.allTime().size(), 1);
    EXPECT_EQ(tracker.allTimeCost(), 0.0);
}

TEST(UsageTracker, UsageAndPriceJsonRoundTrip) {
    const ProviderUsage usage{7, 9'000'000'000'000LL, -1};
    EXPECT_EQ(ProviderUsage::fromJsonObject(nlohmann::json(usage.toJsonObject())), usage);
    const ProviderPrice price{0.15, 0.6};
    EXPECT_EQ(ProviderPrice::fromJsonObject(nlohmann::json(price.toJsonObject())), price);
    EXPECT_FALSE(ProviderPrice::fromJsonObject(nlohmann::json::parse(R"({"inputPer1M":1})")));
    const UsageTracker::UsageMap map{{QStringLiteral("anthropic"), usage},
                                     {QStringLiteral("onDevice"), {1, 0, 0}}};
    EXPECT_EQ(UsageTracker::decode(UsageTracker::encode(map)), map);
}

TEST(MoneyFormat, ZeroBelowOneCentAndAbove) {
    EXPECT_EQ(MoneyFormat::dollars(0.0), QStringLiteral("$0.00"));
    EXPECT_EQ(MoneyFormat::dollars(0.002), QStringLiteral("$0.0020"));
    EXPECT_EQ(MoneyFormat::dollars(0.00001), QStringLiteral("$0.0000"));
    EXPECT_EQ(MoneyFormat::dollars(0.01), QStringLiteral("$0.01"));
    EXPECT_EQ(MoneyFormat::dollars(12.345), QStringLiteral("$12.35"));
}

TEST(CleanupProvider, IdentifiersNamesAccountsAndModels) {
    using namespace CleanupProviders;
    EXPECT_EQ(rawValue(CleanupProvider::onDevice), QStringLiteral("onDevice"));
    EXPECT_EQ(rawValue(CleanupProvider::anthropic), QStringLiteral("anthropic"));
    EXPECT_EQ(rawValue(CleanupProvider::openAICompatible), QStringLiteral("openAICompatible"));
    EXPECT_EQ(fromRawValue(QStringLiteral("anthropic")), CleanupProvider::anthropic);
    EXPECT_FALSE(fromRawValue(QStringLiteral("Anthropic")));
    EXPECT_EQ(displayName(CleanupProvider::onDevice), QStringLiteral("On-Device (local)"));
    EXPECT_EQ(displayName(CleanupProvider::anthropic), QStringLiteral("Claude (Anthropic)"));
    EXPECT_EQ(displayName(CleanupProvider::openAICompatible), QStringLiteral("OpenAI-compatible"));
    EXPECT_FALSE(keychainAccount(CleanupProvider::onDevice));
    EXPECT_EQ(keychainAccount(CleanupProvider::anthropic), QStringLiteral("anthropic-api-key"));
    EXPECT_EQ(keychainAccount(CleanupProvider::openAICompatible),
              QStringLiteral("openai-compatible-api-key"));
    EXPECT_EQ(defaultModel(CleanupProvider::anthropic), QStringLiteral("claude-haiku-4-5"));
    EXPECT_EQ(defaultModel(CleanupProvider::openAICompatible), QStringLiteral("gpt-4o-mini"));
    EXPECT_EQ(defaultModel(CleanupProvider::onDevice), QString());
}
