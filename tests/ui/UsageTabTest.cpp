// The Usage tab against the controller's usage tracker.
#include "SettingsFixture.h"

#include "records/UsageTracker.h"

#include <QPushButton>
#include <QTest>
#include <QTimer>

using namespace murmurly;
using namespace murmurly::uitest;
using murmurly::testing::ControllerHarness;

namespace {

QStringList allTimeTexts(const UsageTab& tab) {
    return visibleLabelTexts(tab.allTimeRows());
}

} // namespace

TEST(UsageTab, AFreshInstallationShowsZeros) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    f.showAtMinimumSize(SettingsTab::usage);
    EXPECT_EQ(f.usage->dictationsCleanedLabel()->text(), QStringLiteral("0"));
    EXPECT_EQ(f.usage->sessionCostLabel()->text(), QStringLiteral("$0.00"));
    EXPECT_EQ(allTimeTexts(*f.usage), QStringList{QStringLiteral("No cleanups recorded yet.")});
    EXPECT_EQ(f.usage->totalLabel()->text(), QStringLiteral("$0.00"));
    const QStringList texts = visibleLabelTexts(f.usage);
    for (const QString& text : {QStringLiteral("Dictations cleaned"), QStringLiteral("Estimated cost"),
                                QStringLiteral("Total"), UsageTab::pricingNote})
        EXPECT_TRUE(texts.contains(text)) << qPrintable(text);
    saveScreenshot(f.window.get(), QStringLiteral("settings-usage-empty-minimum"));
}

TEST(UsageTab, OneAnthropicCleanupShowsItsCostWithFourDecimalsAndItsCounts) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    f.showAtMinimumSize(SettingsTab::usage);
    f.controller.usage().record(CleanupProvider::anthropic, TokenUsage{1000, 200});
    EXPECT_EQ(f.usage->dictationsCleanedLabel()->text(), QStringLiteral("1"));
    EXPECT_EQ(f.usage->sessionCostLabel()->text(), QStringLiteral("$0.0020"));
    EXPECT_EQ(allTimeTexts(*f.usage),
              (QStringList{QStringLiteral("Claude (Anthropic)"), QStringLiteral("$0.0020"),
                           QStringLiteral("1 dictations \u00B7 1000 in / 200 out tokens")}));
    EXPECT_EQ(f.usage->totalLabel()->text(), QStringLiteral("$0.0020"));
}

TEST(UsageTab, OnDeviceCleanupsOnlyListTheOnDeviceRowAtNoCost) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    harness.defaults.setBool(AppController::cleanupEnabledKey, true);
    dictate(harness, QStringLiteral("one"));
    EXPECT_EQ(harness.localModel.next.cleanedText, std::optional<QString>(QStringLiteral("Cleaned.")));
    dictate(harness, QStringLiteral("two"));
    ASSERT_EQ(harness.localModel.userTurnsSeen.size(), 2);
    EXPECT_FALSE(f.controller.lastError().has_value());
    EXPECT_EQ(f.usage->dictationsCleanedLabel()->text(), QStringLiteral("2"));
    EXPECT_EQ(allTimeTexts(*f.usage),
              (QStringList{QStringLiteral("On-Device (local)"), QStringLiteral("$0.00"),
                           QStringLiteral("2 dictations \u00B7 0 in / 0 out tokens")}));
    EXPECT_EQ(f.usage->totalLabel()->text(), QStringLiteral("$0.00"));
}

TEST(UsageTab, RowsFollowProviderOrderAndMoneyUsesTwoDecimalsFromOneCent) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    f.controller.usage().record(CleanupProvider::openAICompatible, TokenUsage{1'000'000, 1'000'000});
    f.controller.usage().record(CleanupProvider::onDevice, std::nullopt);
    f.controller.usage().record(CleanupProvider::anthropic, TokenUsage{10'000, 0});
    f.showAtMinimumSize(SettingsTab::usage);
    EXPECT_EQ(allTimeTexts(*f.usage),
              (QStringList{QStringLiteral("On-Device (local)"), QStringLiteral("$0.00"),
                           QStringLiteral("1 dictations \u00B7 0 in / 0 out tokens"),
                           QStringLiteral("Claude (Anthropic)"), QStringLiteral("$0.01"),
                           QStringLiteral("1 dictations \u00B7 10000 in / 0 out tokens"),
                           QStringLiteral("OpenAI-compatible"), QStringLiteral("$0.75"),
                           QStringLiteral("1 dictations \u00B7 1000000 in / 1000000 out tokens")}));
    EXPECT_EQ(f.usage->totalLabel()->text(), QStringLiteral("$0.76"));
    EXPECT_EQ(f.usage->dictationsCleanedLabel()->text(), QStringLiteral("3"));
    saveScreenshot(f.window.get(), QStringLiteral("settings-usage-minimum"));
}

TEST(UsageTab, PricingRowsReadInProviderOrder) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    const QStringList texts = visibleLabelTexts(f.usage);
    const int onDevice = texts.indexOf(QStringLiteral("$0 in / $0 out"));
    const int anthropic = texts.indexOf(QStringLiteral("$1 in / $5 out"));
    const int openAI = texts.indexOf(QStringLiteral("$0.15 in / $0.6 out"));
    ASSERT_GE(onDevice, 1);
    EXPECT_EQ(texts.at(onDevice - 1), QStringLiteral("On-Device (local)"));
    EXPECT_EQ(texts.at(anthropic - 1), QStringLiteral("Claude (Anthropic)"));
    EXPECT_EQ(texts.at(openAI - 1), QStringLiteral("OpenAI-compatible"));
    EXPECT_LT(onDevice, anthropic);
    EXPECT_LT(anthropic, openAI);
    EXPECT_EQ(UsageTab::priceText(0), QStringLiteral("$0"));
    EXPECT_EQ(UsageTab::priceText(3), QStringLiteral("$3"));
    EXPECT_EQ(UsageTab::priceText(0.075), QStringLiteral("$0.075"));
}

TEST(UsageTab, ResetTotalsEmptiesBothSectionsAtOnceAndSurvivesARelaunch) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    f.showAtMinimumSize(SettingsTab::usage);
    f.controller.usage().record(CleanupProvider::anthropic, TokenUsage{1000, 200});
    QPushButton* reset = f.usage->resetButton();
    EXPECT_EQ(reset->text(), QStringLiteral("Reset Totals"));

    EXPECT_EQ(f.usage->dictationsCleanedLabel()->text(), QStringLiteral("1"));
    // One click, no question asked.
    QTest::mouseClick(reset, Qt::LeftButton);
    EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
    EXPECT_EQ(f.usage->dictationsCleanedLabel()->text(), QStringLiteral("0"));
    EXPECT_EQ(f.usage->sessionCostLabel()->text(), QStringLiteral("$0.00"));
    EXPECT_EQ(allTimeTexts(*f.usage), QStringList{QStringLiteral("No cleanups recorded yet.")});
    EXPECT_EQ(f.usage->totalLabel()->text(), QStringLiteral("$0.00"));
    EXPECT_EQ(harness.defaults.bytesValue(UsageTracker::allTimeKey), QByteArray("{}"));
    // A new run reads the stored value.
    UsageTracker relaunched(harness.defaults);
    EXPECT_TRUE(relaunched.allTime().isEmpty());
}
