// The tray menu against a controller on fakes: which items show, what they say, and what they do.
#include "UiTestSupport.h"

#include "app/MenuContent.h"
#include "cleanup/CleanupSettings.h"
#include "core/AppController.h"
#include "hotkey/HotkeyMonitor.h"
#include "records/UsageTracker.h"
#include "settings/PreferenceSwitches.h"
#include "settings/SettingsWindow.h"

#include <QApplication>
#include <QLabel>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

using namespace murmurly;
using namespace murmurly::uitest;
using murmurly::testing::ControllerHarness;

namespace {

const QString sep = QStringLiteral("---");

struct MenuFixture {
    explicit MenuFixture(ControllerHarness& harness)
        : controller(harness.controller())
        , content(controller, controller.usage(), controller.cleanupSettings()) {}

    QMenu& menu() { return *content.menu(); }
    QStringList items() { return visibleItems(menu()); }
    QAction* action(const QString& text) { return findAction(menu(), text); }

    AppController& controller;
    MenuContent content;
};

// Shows the menu as the tray would and takes its picture.
QString screenshotOf(QMenu& menu, const QString& name) {
    menu.popup(QPoint(10, 10));
    EXPECT_TRUE(QTest::qWaitForWindowExposed(&menu));
    const QString path = saveScreenshot(&menu, name);
    menu.close();
    return path;
}

} // namespace

TEST(MenuContent, IdleMenuListsEveryItemInOrder) {
    ControllerHarness harness;
    MenuFixture f(harness);
    EXPECT_EQ(
        f.items(),
        (QStringList{QStringLiteral("Idle"), QStringLiteral("Model: ready"), sep,
                     QStringLiteral("Clean Up Transcripts"), QStringLiteral("Provider: On-Device (local)"),
                     QStringLiteral("Append Trailing Space"), sep, QStringLiteral("Settings\u2026"), sep,
                     QStringLiteral("Hold Right Alt to dictate"), sep, QStringLiteral("Quit Murmurly")}));
    EXPECT_EQ(f.action(QStringLiteral("Settings\u2026"))->shortcut(), QKeySequence(QStringLiteral("Ctrl+,")));
    EXPECT_EQ(f.action(QStringLiteral("Quit Murmurly"))->shortcut(), QKeySequence(QStringLiteral("Ctrl+Q")));
    // Text lines are shown, not offered.
    EXPECT_FALSE(f.action(QStringLiteral("Idle"))->isEnabled());
    EXPECT_FALSE(f.action(QStringLiteral("Hold Right Alt to dictate"))->isEnabled());
    screenshotOf(f.menu(), QStringLiteral("menu-idle"));
}

TEST(MenuContent, TheTriggerShownIsTheKeyTheDesktopAssigned) {
    ControllerHarness harness;
    MenuFixture f(harness);
    harness.keyEvents.assign(QStringLiteral("Ctrl+Alt+D"));
    EXPECT_TRUE(f.items().contains(QStringLiteral("Hold Ctrl+Alt+D to dictate")))
        << f.items().join(QLatin1Char('|')).toStdString();
    EXPECT_FALSE(f.items().contains(QStringLiteral("Hold Right Alt to dictate")));
}

TEST(MenuContent, SessionCostIsAbsentAtZeroAndShownWithFourDecimalsAfterAPaidCleanup) {
    ControllerHarness harness;
    MenuFixture f(harness);
    harness.defaults.setBool(AppController::cleanupEnabledKey, true);
    dictate(harness, QStringLiteral("hello there"));
    ASSERT_EQ(harness.localModel.userTurnsSeen.size(), 1); // an on-device cleanup: free
    EXPECT_EQ(f.controller.usage().sessionCost(), 0.0);
    EXPECT_FALSE(f.items().join(QLatin1Char('|')).contains(QStringLiteral("Session cost")));

    f.controller.usage().record(CleanupProvider::anthropic, TokenUsage{1000, 200});
    const QStringList items = f.items();
    ASSERT_GE(items.size(), 3);
    EXPECT_EQ(items.at(2), QStringLiteral("Session cost: $0.0020"));

    f.controller.usage().record(CleanupProvider::anthropic, TokenUsage{1'000'000, 100'000});
    EXPECT_EQ(f.items().at(2), QStringLiteral("Session cost: $1.5020"));
}

TEST(MenuContent, ErrorLineIsAbsentUntilACleanupFailsAndThenStays) {
    ControllerHarness harness;
    MenuFixture f(harness);
    EXPECT_FALSE(f.items().join(QLatin1Char('|')).contains(QStringLiteral("\u26A0")));

    harness.defaults.setBool(AppController::cleanupEnabledKey, true);
    harness.localModel.next = LocalLanguageModel::Generation{std::nullopt, QStringLiteral("model went away")};
    dictate(harness, QStringLiteral("first"));
    const QString expected =
        QStringLiteral("\u26A0\uFE0E Cleanup failed \u2014 inserted the raw transcript.");
    ASSERT_GE(f.items().size(), 3);
    EXPECT_EQ(f.items().at(2), expected);

    // A later dictation that goes well leaves the line in place.
    harness.localModel.next = LocalLanguageModel::Generation{QStringLiteral("Second."), {}};
    dictate(harness, QStringLiteral("second"));
    EXPECT_EQ(f.items().at(2), expected);

    // With a paid cleanup the cost line comes first, then the problem.
    f.controller.usage().record(CleanupProvider::anthropic, TokenUsage{1000, 200});
    EXPECT_EQ(f.items().mid(2, 2), (QStringList{QStringLiteral("Session cost: $0.0020"), expected}));
    screenshotOf(f.menu(), QStringLiteral("menu-cost-and-error"));
}

TEST(MenuContent, ErrorTextIsShownLiterally) {
    ControllerHarness harness;
    harness.loginItem.failure = QStringLiteral("Tab\tand & ampersand");
    harness.defaults.setBool(AppController::didSetDefaultLoginItemKey, true);
    MenuFixture f(harness);
    f.controller.setLaunchAtLogin(true);
    EXPECT_EQ(f.items().at(2), QStringLiteral("\u26A0\uFE0E Launch at login: Tab and & ampersand"));
}

TEST(MenuContent, KeyboardAccessItemDisappearsOnceTheDesktopGrantsAccess) {
    ControllerHarness harness;
    harness.permissions.keyboard = false;
    MenuFixture f(harness);
    const QString item = QStringLiteral("\u26A0\uFE0E Check Keyboard Access\u2026");
    EXPECT_TRUE(f.items().contains(item));
    EXPECT_EQ(f.items().indexOf(item) + 1, f.items().indexOf(QStringLiteral("Settings\u2026")));

    harness.permissions.keyboard = true;
    harness.advance(1s);
    EXPECT_TRUE(f.items().contains(item)); // the poll has not looked yet
    harness.advance(2s);
    EXPECT_FALSE(f.items().contains(item));
}

TEST(MenuContent, KeyboardAccessItemAsksAgainStoresTheAnswerAndOpensSettings) {
    ControllerHarness harness;
    harness.permissions.keyboard = false;
    MenuFixture f(harness);
    QSignalSpy opened(&f.content, &MenuContent::settingsRequested);
    const int promptsBefore = harness.permissions.keyboardPrompts;

    harness.permissions.keyboard = true; // granted by the time the user comes back
    f.action(QStringLiteral("\u26A0\uFE0E Check Keyboard Access\u2026"))->trigger();
    EXPECT_EQ(harness.permissions.keyboardPrompts, promptsBefore + 1);
    EXPECT_TRUE(f.controller.axTrusted());
    EXPECT_EQ(opened.count(), 1);
    EXPECT_FALSE(f.items().contains(QStringLiteral("\u26A0\uFE0E Check Keyboard Access\u2026")));
}

TEST(MenuContent, KeyboardAccessItemStartsTheTriggerListenerThatFailedAtStartUp) {
    ControllerHarness harness;
    harness.permissions.keyboard = false;
    harness.keyEvents.available = false;
    MenuFixture f(harness);
    ASSERT_FALSE(f.controller.hotkeyMonitor().isRunning());

    harness.permissions.keyboard = true;
    harness.keyEvents.available = true;
    f.action(QStringLiteral("\u26A0\uFE0E Check Keyboard Access\u2026"))->trigger();
    EXPECT_TRUE(f.controller.hotkeyMonitor().isRunning());
    // The poll that follows sees no change to act on and leaves the running listener alone.
    const int starts = harness.keyEvents.starts;
    harness.advance(6s);
    EXPECT_TRUE(f.controller.hotkeyMonitor().isRunning());
    EXPECT_EQ(harness.keyEvents.starts, starts);
}

TEST(MenuContent, SwitchesReadAndWriteThePreferences) {
    ControllerHarness harness;
    MenuFixture f(harness);
    QAction* cleanup = f.action(QStringLiteral("Clean Up Transcripts"));
    QAction* trailing = f.action(QStringLiteral("Append Trailing Space"));
    ASSERT_TRUE(cleanup && trailing);
    EXPECT_TRUE(cleanup->isCheckable() && trailing->isCheckable());
    // Nothing stored: cleanup reads off, the trailing space reads on.
    EXPECT_FALSE(harness.defaults.contains(AppController::trailingSpaceKey));
    EXPECT_FALSE(cleanup->isChecked());
    EXPECT_TRUE(trailing->isChecked());

    cleanup->trigger();
    EXPECT_EQ(harness.defaults.boolValue(AppController::cleanupEnabledKey), true);
    trailing->trigger();
    EXPECT_EQ(harness.defaults.value(AppController::trailingSpaceKey), QVariant(false));

    // Written behind the menu's back: read again when the menu opens.
    harness.defaults.setBool(AppController::cleanupEnabledKey, false);
    emit f.menu().aboutToShow();
    EXPECT_FALSE(cleanup->isChecked());
}

TEST(MenuContent, CleanupSwitchAppliesToADictationOnlyBeforeItsFinishReadsIt) {
    ControllerHarness harness;
    MenuFixture f(harness);
    QAction* cleanup = f.action(QStringLiteral("Clean Up Transcripts"));
    harness.speech.script.finalResults = {TranscriptionResult{QStringLiteral("one"), true}};

    // Switched on while recording: this dictation is cleaned.
    f.controller.pttPressed();
    harness.advance(500ms);
    ASSERT_EQ(f.controller.state(), DictationState::recording);
    cleanup->trigger();
    f.controller.pttReleased();
    harness.settle();
    ASSERT_EQ(f.controller.state(), DictationState::inserting);
    EXPECT_EQ(harness.localModel.userTurnsSeen.size(), 1);
    EXPECT_EQ(harness.clipboard.text(), QStringLiteral("Cleaned. "));

    // Switched off while that dictation is inserted: already read, it stays cleaned, and only
    // the next one goes without.
    cleanup->trigger();
    EXPECT_EQ(harness.pasteKeys.chords, 1);
    harness.advance(1s);
    EXPECT_EQ(f.controller.state(), DictationState::idle);
    EXPECT_EQ(f.controller.usage().session().value(QStringLiteral("onDevice")).dictations, 1);
    harness.speech.script.finalResults = {TranscriptionResult{QStringLiteral("two"), true}};
    f.controller.pttPressed();
    harness.advance(500ms);
    f.controller.pttReleased();
    harness.settle();
    EXPECT_EQ(harness.clipboard.text(), QStringLiteral("two "));
    EXPECT_EQ(harness.localModel.userTurnsSeen.size(), 1);
}

TEST(MenuContent, TextLinesFollowTheController) {
    ControllerHarness harness;
    MenuFixture f(harness);
    harness.speech.script.finalResults = {TranscriptionResult{QStringLiteral("x"), true}};
    f.controller.pttPressed();
    harness.settle();
    EXPECT_EQ(f.items().at(0), QStringLiteral("Recording\u2026"));
    f.controller.setCaptureMode(CaptureMode::toggle);
    EXPECT_EQ(f.items().at(0), QStringLiteral("Listening\u2026 (tap to stop)"));
    f.controller.cancelDictation();
    harness.advance(1s);
    EXPECT_EQ(f.items().at(0), QStringLiteral("Idle"));

    f.controller.cleanupSettings().setProvider(CleanupProvider::anthropic);
    EXPECT_TRUE(f.items().contains(QStringLiteral("Provider: Claude (Anthropic)")));

    harness.speech.installed.clear();
    f.controller.setLocale(QStringLiteral("en-US"));
    EXPECT_EQ(f.items().at(1), QStringLiteral("Model: ready")); // the fake installs at once
    EXPECT_EQ(harness.speech.downloads, 1);

    HotkeyBinding f6{HotkeyBinding::Kind::key, 97, 0, QStringLiteral("F6")};
    f.controller.endHotkeyRecording(f6);
    EXPECT_TRUE(f.items().contains(QStringLiteral("Hold F6 to dictate")));
    // Fixed wording in either capture mode.
    EXPECT_EQ(f.controller.captureMode(), CaptureMode::toggle);
}

TEST(MenuContent, ModelLineShowsAFailureWithItsMessage) {
    ControllerHarness harness;
    harness.speech.installed.clear();
    harness.speech.supported = {QStringLiteral("en-US")};
    MenuFixture f(harness);
    // A language the recognizer cannot install fails the check.
    f.controller.setLocale(QStringLiteral("xx-YY"));
    harness.settle();
    const QString line = f.items().at(1);
    EXPECT_TRUE(line.startsWith(QStringLiteral("Model: failed \u2014 "))) << qPrintable(line);
}

TEST(MenuContent, SettingsItemAsksForTheSettingsWindow) {
    ControllerHarness harness;
    MenuFixture f(harness);
    SettingsWindow window({{QStringLiteral("General"), QIcon(), new QLabel(QStringLiteral("General"))}});
    QObject::connect(&f.content, &MenuContent::settingsRequested, &window, &SettingsWindow::showAndRaise);
    EXPECT_FALSE(window.isVisible());
    f.action(QStringLiteral("Settings\u2026"))->trigger();
    EXPECT_TRUE(window.isVisible());
    EXPECT_TRUE(QTest::qWaitForWindowActive(&window));
}

TEST(MenuContent, QuitEndsTheApplication) {
    ControllerHarness harness;
    MenuFixture f(harness);
    QTimer::singleShot(0, [&] { f.action(QStringLiteral("Quit Murmurly"))->trigger(); });
    // A guard so that a broken Quit fails instead of hanging.
    QTimer::singleShot(5000, [] { QCoreApplication::exit(7); });
    EXPECT_EQ(QApplication::exec(), 0);
}

TEST(MenuContent, CtrlQQuitsFromTheSettingsWindow) {
    ControllerHarness harness;
    MenuFixture f(harness);
    SettingsWindow window({{QStringLiteral("General"), QIcon(), new QLabel(QStringLiteral("General"))}});
    window.addActions({f.content.settingsAction(), f.content.quitAction()});
    window.showAndRaise();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    QTimer::singleShot(0, [&] { QTest::keyClick(&window, Qt::Key_Q, Qt::ControlModifier); });
    QTimer::singleShot(5000, [] { QCoreApplication::exit(7); });
    EXPECT_EQ(QApplication::exec(), 0);
}
