// What the menu would say reaching the user through notifications on a desktop without a tray,
// against a controller on fakes.
#include "UiTestSupport.h"

#include "FakeNotifications.h"
#include "app/MenuContent.h"
#include "app/TraylessNotices.h"
#include "core/AppController.h"

using namespace murmurly;
using namespace murmurly::uitest;
using murmurly::testing::ControllerHarness;
using murmurly::testing::FakeNotifications;
using Slot = Notifications::Slot;

namespace {

struct NoticesFixture {
    explicit NoticesFixture(ControllerHarness& harness)
        : controller(harness.controller())
        , notices(controller, notifications, [this] { return trayShown; }) {
        harness.settle();
    }

    // The menu's visible lines, for comparing a notice with what the menu shows.
    QStringList menuLines() {
        MenuContent menu(controller, controller.usage(), controller.cleanupSettings());
        return visibleItems(*menu.menu());
    }

    AppController& controller;
    FakeNotifications notifications;
    bool trayShown = false;
    TraylessNotices notices;
};

void failCleanups(ControllerHarness& harness) {
    harness.defaults.setBool(AppController::cleanupEnabledKey, true);
    harness.localModel.next = LocalLanguageModel::Generation{std::nullopt, QStringLiteral("model went away")};
}

} // namespace

TEST(TraylessNotices, TheFirstStartNoticeNamesTheTriggerAndIsShownOncePerUser) {
    ControllerHarness harness;
    {
        NoticesFixture f(harness);
        f.notices.programStarted();
        EXPECT_EQ(f.notifications.calls,
                  std::vector{FakeNotifications::shown(
                      Slot::message, QStringLiteral("Murmurly is running. Hold Right Alt to dictate."))});
        EXPECT_EQ(harness.defaults.boolValue(TraylessNotices::runningNoticeShownKey), true);
    }
    // The next start (the same preferences): nothing.
    NoticesFixture again(harness);
    again.notices.programStarted();
    EXPECT_TRUE(again.notifications.calls.empty());
}

TEST(TraylessNotices, TheFirstStartNoticeNamesTheTriggerInForce) {
    ControllerHarness harness;
    harness.controller().endHotkeyRecording(
        HotkeyBinding{HotkeyBinding::Kind::key, 97, 0, QStringLiteral("F6")});
    NoticesFixture f(harness);
    f.notices.programStarted();
    ASSERT_EQ(f.notifications.calls.size(), 1u);
    EXPECT_EQ(f.notifications.calls[0].body, QStringLiteral("Murmurly is running. Hold F6 to dictate."));
}

TEST(TraylessNotices, TheFirstStartNoticeCountsAsShownOnlyOnceTheDesktopTookIt) {
    ControllerHarness harness;
    NoticesFixture f(harness);
    f.notifications.serviceAvailable = false;
    f.notices.programStarted();
    EXPECT_EQ(f.notifications.calls.size(), 1u);
    EXPECT_FALSE(harness.defaults.boolValue(TraylessNotices::runningNoticeShownKey).has_value());
}

TEST(TraylessNotices, ACleanupFailureGivesOneNoticeWithTheMenusTextAndASecondReplacesIt) {
    ControllerHarness harness;
    NoticesFixture f(harness);
    failCleanups(harness);
    dictate(harness, QStringLiteral("first"));
    harness.settle();
    const QString expected =
        QStringLiteral("\u26A0\uFE0E Cleanup failed \u2014 inserted the raw transcript.");
    std::vector<FakeNotifications::Call> messages;
    for (const auto& call : f.notifications.calls)
        if (call.slot == Slot::message) messages.push_back(call);
    EXPECT_EQ(messages, std::vector{FakeNotifications::shown(Slot::message, expected)});
    EXPECT_TRUE(f.menuLines().contains(expected));

    // The second failure goes to the same slot, replacing the first notice.
    dictate(harness, QStringLiteral("second"));
    harness.settle();
    messages.clear();
    for (const auto& call : f.notifications.calls)
        if (call.slot == Slot::message) messages.push_back(call);
    EXPECT_EQ(messages, (std::vector{FakeNotifications::shown(Slot::message, expected),
                                     FakeNotifications::shown(Slot::message, expected)}));
}

TEST(TraylessNotices, AFailedModelGivesOneNoticeWithTheMenusModelAndErrorLines) {
    ControllerHarness harness;
    harness.speech.installed.clear();
    harness.speech.supported = {QStringLiteral("en-US")};
    NoticesFixture f(harness);
    f.notifications.calls.clear();
    f.controller.setLocale(QStringLiteral("xx-YY"));
    harness.settle();
    ASSERT_EQ(f.controller.modelStatus().kind, ModelStatus::Kind::failed);
    const QString modelLine = f.controller.modelStatus().menuLabel();
    const QString errorLine = MenuContent::errorLine(*f.controller.lastError());
    EXPECT_TRUE(modelLine.startsWith(QStringLiteral("Model: failed \u2014 "))) << qPrintable(modelLine);
    EXPECT_EQ(f.notifications.calls, std::vector{FakeNotifications::shown(
                                         Slot::message, modelLine + QLatin1Char('\n') + errorLine)});
    const QStringList menu = f.menuLines();
    EXPECT_TRUE(menu.contains(modelLine));
    EXPECT_TRUE(menu.contains(errorLine));

    // Failing again after another try is a new failure, told again.
    f.controller.setLocale(QStringLiteral("yy-ZZ"));
    harness.settle();
    EXPECT_EQ(f.notifications.calls.size(), 2u);
}

TEST(TraylessNotices, ARecordingIsShownWhileItRunsAndWithdrawnWhenItEnds) {
    ControllerHarness harness;
    NoticesFixture f(harness);
    harness.speech.script.finalResults = {TranscriptionResult{QStringLiteral("hello"), true}};
    f.controller.pttPressed();
    harness.settle();
    ASSERT_EQ(f.controller.state(), DictationState::recording);
    EXPECT_EQ(f.notifications.calls,
              std::vector{FakeNotifications::shown(Slot::recording, QStringLiteral("Recording\u2026"))});
    harness.advance(500ms);
    f.controller.pttReleased();
    harness.settle();
    EXPECT_EQ(f.notifications.calls.back(), FakeNotifications::withdrawn(Slot::recording));
    for (int i = 0; i < 20 && f.controller.state() != DictationState::idle; ++i)
        harness.advance(100ms);
    EXPECT_EQ(f.notifications.calls.size(), 2u);

    // A cancelled recording is withdrawn too.
    f.controller.pttPressed();
    harness.settle();
    harness.advance(500ms);
    f.controller.cancelDictation();
    harness.settle();
    EXPECT_EQ(f.notifications.calls.size(), 4u);
    EXPECT_EQ(f.notifications.calls.back(), FakeNotifications::withdrawn(Slot::recording));
}

TEST(TraylessNotices, WithATrayShownNothingIsSent) {
    ControllerHarness harness;
    harness.speech.supported = {QStringLiteral("en-US")};
    NoticesFixture f(harness);
    f.trayShown = true;
    f.notices.programStarted();
    failCleanups(harness);
    dictate(harness, QStringLiteral("first"));
    harness.speech.installed.clear();
    f.controller.setLocale(QStringLiteral("xx-YY"));
    harness.settle();
    ASSERT_TRUE(f.controller.lastError().has_value());
    EXPECT_TRUE(f.notifications.calls.empty());
    EXPECT_FALSE(harness.defaults.boolValue(TraylessNotices::runningNoticeShownKey).has_value());
}

TEST(TraylessNotices, ProblemsMetBeforeTheStartAreToldAfterTheFirstStartNotice) {
    ControllerHarness harness;
    harness.speech.installed.clear();
    harness.speech.supported = {QStringLiteral("en-US")};
    harness.defaults.setString(AppController::dictationLocaleKey, QStringLiteral("xx-YY"));
    AppController& controller = harness.controller();
    harness.settle();
    ASSERT_EQ(controller.modelStatus().kind, ModelStatus::Kind::failed);
    // Built after the failure, as the program's surface is built after its services.
    FakeNotifications notifications;
    TraylessNotices notices(controller, notifications, [] { return false; });
    notices.programStarted();
    harness.settle();
    const QString problems = controller.modelStatus().menuLabel() + QLatin1Char('\n') +
                             MenuContent::errorLine(*controller.lastError());
    EXPECT_EQ(notifications.calls,
              (std::vector{FakeNotifications::shown(
                               Slot::message, TraylessNotices::runningNotice(controller.triggerName())),
                           FakeNotifications::shown(Slot::message, problems)}));
}
