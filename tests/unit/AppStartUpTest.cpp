#include "ControllerHarness.h"
#include "LogCapture.h"

#include "core/Permissions.h"
#include "hotkey/HotkeyMonitor.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace murmurly;
using namespace std::chrono_literals;
using murmurly::testing::ControllerHarness;
using murmurly::testing::LogCapture;

namespace {

const QString hotkeyListenerFailure =
    QStringLiteral("Could not install the hotkey listener \u2014 check keyboard access.");

TEST(AppStartUp, FirstStartWithoutKeyboardAccessPromptsOnceFailsAndStartsTheMonitorOnceGranted) {
    LogCapture log;
    ControllerHarness h;
    h.permissions.keyboard = false;
    h.keyEvents.available = false;
    AppController& c = h.controller();

    EXPECT_EQ(h.permissions.keyboardPrompts, 1);
    EXPECT_FALSE(c.axTrusted());
    EXPECT_FALSE(c.hotkeyMonitor().isRunning());
    EXPECT_EQ(c.lastErrorText(), hotkeyListenerFailure);
    EXPECT_TRUE(log.messages(QtCriticalMsg)
                    .contains(QStringLiteral(
                        "Failed to install event tap \u2014 Accessibility permission missing?")));

    h.advance(7s);
    EXPECT_FALSE(c.hotkeyMonitor().isRunning());

    // The user grants access; the next poll notices it and starts the monitor without a restart.
    h.permissions.keyboard = true;
    h.keyEvents.available = true;
    h.advance(3s);
    EXPECT_TRUE(c.axTrusted());
    EXPECT_TRUE(c.hotkeyMonitor().isRunning());
    EXPECT_TRUE(log.appMessages().contains(QStringLiteral("Hotkey event tap installed")));
    EXPECT_EQ(h.permissions.keyboardPrompts, 1);
}

TEST(AppStartUp, AskingForKeyboardAccessStartsAListenerThatFailedAtStartUp) {
    LogCapture log;
    ControllerHarness h;
    h.permissions.keyboard = false;
    h.keyEvents.available = false;
    AppController& c = h.controller();
    ASSERT_FALSE(c.hotkeyMonitor().isRunning());

    h.permissions.keyboard = true;
    h.keyEvents.available = true;
    c.requestKeyboardAccess();
    EXPECT_TRUE(c.axTrusted());
    EXPECT_TRUE(c.hotkeyMonitor().isRunning());
    EXPECT_TRUE(log.appMessages().contains(QStringLiteral("Hotkey event tap installed")));

    // Asked again while it runs: no second start.
    const int starts = h.keyEvents.starts;
    c.requestKeyboardAccess();
    h.advance(6s);
    EXPECT_EQ(h.keyEvents.starts, starts);
    EXPECT_TRUE(c.hotkeyMonitor().isRunning());
}

TEST(AppStartUp, AskingForKeyboardAccessThatIsStillMissingStartsNothing) {
    ControllerHarness h;
    h.permissions.keyboard = false;
    h.keyEvents.available = false;
    AppController& c = h.controller();
    const int starts = h.keyEvents.starts;
    c.requestKeyboardAccess();
    EXPECT_FALSE(c.axTrusted());
    EXPECT_EQ(h.keyEvents.starts, starts);
}

TEST(AppStartUp, KeyboardAccessAtStartInstallsTheListenerWithoutPrompting) {
    LogCapture log;
    ControllerHarness h;
    AppController& c = h.controller();
    EXPECT_TRUE(c.axTrusted());
    EXPECT_EQ(h.permissions.keyboardPrompts, 0);
    EXPECT_TRUE(c.hotkeyMonitor().isRunning());
    EXPECT_FALSE(c.lastError());
    EXPECT_TRUE(log.appMessages().contains(QStringLiteral("Hotkey event tap installed")));
}

TEST(AppStartUp, MonitorThatLosesTheKeyboardIsStartedAgainWhenAccessReturns) {
    ControllerHarness h;
    AppController& c = h.controller();
    // The display goes away: keyboard access and the monitor are both lost.
    h.permissions.keyboard = false;
    h.keyEvents.running = false;
    h.advance(3s);
    EXPECT_FALSE(c.axTrusted());
    const int starts = h.keyEvents.starts;
    h.permissions.keyboard = true;
    h.advance(3s);
    EXPECT_EQ(h.keyEvents.starts, starts + 1);
    EXPECT_TRUE(c.hotkeyMonitor().isRunning());
}

// A desktop that closes its shortcuts session takes the trigger away while access stands.
TEST(AppStartUp, ATriggerSourceThatStopsWhileAccessStandsIsStartedAgainWithinOnePoll) {
    ControllerHarness h;
    AppController& c = h.controller();
    ASSERT_TRUE(c.hotkeyMonitor().isRunning());
    const int starts = h.keyEvents.starts;
    h.keyEvents.running = false;
    h.advance(AppController::permissionPollInterval);
    EXPECT_TRUE(c.axTrusted());
    EXPECT_EQ(h.keyEvents.starts, starts + 1);
    EXPECT_TRUE(c.hotkeyMonitor().isRunning());
}

TEST(AppStartUp, AListenerThatKeepsFailingWhileAccessStandsIsToldOnceAndTriedEachPoll) {
    LogCapture log;
    ControllerHarness h;
    AppController& c = h.controller();
    h.keyEvents.available = false;
    h.keyEvents.running = false;
    const int starts = h.keyEvents.starts;
    h.advance(3 * AppController::permissionPollInterval);
    EXPECT_EQ(h.keyEvents.starts, starts + 3);
    EXPECT_EQ(c.lastErrorText(), hotkeyListenerFailure);
    EXPECT_EQ(log.messages(QtCriticalMsg).count(
                  QStringLiteral("Failed to install event tap \u2014 Accessibility permission missing?")),
              1);

    // Once it works again, a later failure is told again.
    h.keyEvents.available = true;
    h.advance(AppController::permissionPollInterval);
    ASSERT_TRUE(c.hotkeyMonitor().isRunning());
    h.keyEvents.available = false;
    h.keyEvents.running = false;
    h.advance(AppController::permissionPollInterval);
    EXPECT_EQ(log.messages(QtCriticalMsg).count(
                  QStringLiteral("Failed to install event tap \u2014 Accessibility permission missing?")),
              2);
}

TEST(AppStartUp, MicrophoneIsRequestedAtStartWhenNotAuthorized) {
    ControllerHarness h;
    h.permissions.microphone = false;
    h.permissions.grantMicrophoneOnRequest = true;
    AppController& c = h.controller();
    EXPECT_EQ(h.permissions.microphoneRequests, 1);
    EXPECT_TRUE(c.micAuthorized());
}

TEST(AppStartUp, MicrophoneAuthorizedAtStartIsNotRequested) {
    ControllerHarness h;
    EXPECT_TRUE(h.controller().micAuthorized());
    EXPECT_EQ(h.permissions.microphoneRequests, 0);
}

TEST(AppStartUp, PermissionPollWritesValuesOnlyWhenTheyChange) {
    ControllerHarness h;
    AppController& c = h.controller();
    QSignalSpy keyboard(&c, &AppController::axTrustedChanged);
    QSignalSpy microphone(&c, &AppController::micAuthorizedChanged);
    h.advance(30s);
    EXPECT_GE(h.permissions.microphoneReads, 10);
    EXPECT_EQ(keyboard.count(), 0);
    EXPECT_EQ(microphone.count(), 0);

    h.permissions.microphone = false;
    h.advance(3s);
    EXPECT_EQ(microphone.count(), 1);
    EXPECT_FALSE(c.micAuthorized());
    h.advance(9s);
    EXPECT_EQ(microphone.count(), 1);
}

TEST(AppStartUp, PollNoticesAccessWithinThreeSeconds) {
    ControllerHarness h;
    h.permissions.microphone = false;
    AppController& c = h.controller();
    EXPECT_FALSE(c.micAuthorized());
    h.advance(1s);
    h.permissions.microphone = true;
    h.advance(2s);
    EXPECT_TRUE(c.micAuthorized());
}

TEST(AppStartUp, RequestMicrophoneAccessStoresTheAnswer) {
    ControllerHarness h;
    h.permissions.microphone = false;
    AppController& c = h.controller();
    h.permissions.grantMicrophoneOnRequest = true;
    c.requestMicrophoneAccess();
    h.settle();
    EXPECT_TRUE(c.micAuthorized());
}

TEST(AppStartUp, OpenSystemSettingsOpensTheNamedPage) {
    ControllerHarness h;
    h.controller().openSystemSettings(Permissions::microphonePane);
    h.controller().openSystemSettings(Permissions::keyboardPane);
    EXPECT_EQ(h.permissions.openedPanes,
              (QStringList{Permissions::microphonePane, Permissions::keyboardPane}));
}

// ---- launch at login ----

TEST(AppStartUp, FirstRunTurnsLaunchAtLoginOnOnce) {
    ControllerHarness h;
    AppController& c = h.controller();
    EXPECT_EQ(h.loginItem.registrations, 1);
    EXPECT_TRUE(c.launchAtLogin());
    EXPECT_EQ(h.defaults.boolValue(AppController::didSetDefaultLoginItemKey), true);

    // The user turns it off; later starts never turn it back on.
    c.setLaunchAtLogin(false);
    EXPECT_FALSE(c.launchAtLogin());
    h.destroyController();
    h.controller();
    EXPECT_EQ(h.loginItem.registrations, 1);
    EXPECT_FALSE(h.controller().launchAtLogin());
}

TEST(AppStartUp, DidSetDefaultLoginItemAlreadyTrueLeavesLaunchAtLoginUntouched) {
    ControllerHarness h;
    h.defaults.setBool(AppController::didSetDefaultLoginItemKey, true);
    AppController& c = h.controller();
    EXPECT_EQ(h.loginItem.registrations, 0);
    EXPECT_EQ(h.loginItem.unregistrations, 0);
    EXPECT_FALSE(c.launchAtLogin());
}

TEST(AppStartUp, FirstRunWithTheLoginItemAlreadyEnabledDoesNotRegisterAgain) {
    ControllerHarness h;
    h.loginItem.enabled = true;
    AppController& c = h.controller();
    EXPECT_EQ(h.loginItem.registrations, 0);
    EXPECT_TRUE(c.launchAtLogin());
    EXPECT_EQ(h.defaults.boolValue(AppController::didSetDefaultLoginItemKey), true);
}

TEST(AppStartUp, UnregisteringFailsAndLaunchAtLoginStillReflectsTheActualState) {
    LogCapture log;
    ControllerHarness h;
    AppController& c = h.controller();
    ASSERT_TRUE(c.launchAtLogin());
    h.loginItem.failure =
        QStringLiteral("Could not remove /home/u/.config/autostart/murmurly.desktop: Permission denied.");
    c.setLaunchAtLogin(false);
    EXPECT_TRUE(c.launchAtLogin());
    EXPECT_EQ(c.lastErrorText(),
              QStringLiteral("Launch at login: Could not remove /home/u/.config/autostart/murmurly.desktop: "
                             "Permission denied."));
    EXPECT_TRUE(
        log.messages(QtCriticalMsg)
            .contains(QStringLiteral("Launch-at-login change failed: Could not remove "
                                     "/home/u/.config/autostart/murmurly.desktop: Permission denied.")));
}

TEST(AppStartUp, RegisteringFailsOnFirstRunAndTheFailureIsShown) {
    ControllerHarness h;
    h.loginItem.failure = QStringLiteral("Read-only file system.");
    AppController& c = h.controller();
    EXPECT_FALSE(c.launchAtLogin());
    EXPECT_EQ(c.lastErrorText(), QStringLiteral("Launch at login: Read-only file system."));
}

// ---- preferences ----

TEST(AppStartUp, ConstructionRegistersTrailingSpaceWithoutWritingIt) {
    ControllerHarness h;
    h.defaults.setBool(AppController::didSetDefaultLoginItemKey, true);
    const int writes = h.defaults.writeCount();
    h.controller();
    EXPECT_EQ(h.defaults.writeCount(), writes);
    EXPECT_FALSE(h.defaults.contains(AppController::trailingSpaceKey));
    EXPECT_EQ(h.defaults.boolValue(AppController::trailingSpaceKey), true);
    EXPECT_EQ(h.defaults.boolValue(AppController::cleanupEnabledKey), std::nullopt);
    h.defaults.setBool(AppController::trailingSpaceKey, false);
    EXPECT_EQ(h.defaults.boolValue(AppController::trailingSpaceKey), false);
}

TEST(AppStartUp, LanguageIsReadFromPreferencesOrIsEnglish) {
    ControllerHarness h;
    EXPECT_EQ(h.controller().dictationLocaleID(), QStringLiteral("en-US"));
    ControllerHarness other;
    other.defaults.setString(AppController::dictationLocaleKey, QStringLiteral("de-DE"));
    other.speech.supported << QStringLiteral("de-DE");
    other.speech.installed << QStringLiteral("de-DE");
    EXPECT_EQ(other.controller().dictationLocaleID(), QStringLiteral("de-DE"));
    EXPECT_EQ(other.controller().modelStatus(), ModelStatus::ready());
}

TEST(AppStartUp, SupportedLanguagesAreReadAtStart) {
    ControllerHarness h;
    h.speech.supported = {QStringLiteral("en-US"), QStringLiteral("en-GB")};
    EXPECT_EQ(h.controller().supportedLocales(),
              (QStringList{QStringLiteral("en-US"), QStringLiteral("en-GB")}));
}

// ---- the speech model ----

TEST(AppStartUp, InstalledModelIsReadyAtStart) {
    LogCapture log;
    ControllerHarness h;
    EXPECT_EQ(h.controller().modelStatus(), ModelStatus::ready());
    EXPECT_EQ(h.speech.downloads, 0);
    EXPECT_TRUE(log.appMessages().contains(QStringLiteral("Speech model ready")));
}

TEST(AppStartUp, ChangingToALanguageWhoseModelIsMissingShowsDownloadingAndRefusesPresses) {
    ControllerHarness h;
    h.speech.supported << QStringLiteral("fr-FR");
    AppController& c = h.controller();
    h.speech.installGate.waits = true;
    c.setLocale(QStringLiteral("fr-FR"));
    EXPECT_EQ(h.defaults.stringValue(AppController::dictationLocaleKey), QStringLiteral("fr-FR"));
    EXPECT_EQ(c.modelStatus().menuLabel(), QStringLiteral("Model: downloading\u2026"));
    c.pttPressed();
    EXPECT_EQ(c.state(), DictationState::idle);

    h.speech.installGate.release();
    h.settle();
    EXPECT_EQ(c.modelStatus(), ModelStatus::ready());
    EXPECT_EQ(h.speech.downloads, 1);
    c.pttPressed();
    EXPECT_EQ(c.state(), DictationState::recording);
    EXPECT_EQ(h.speech.sessionLanguages, QStringList{QStringLiteral("fr-FR")});
}

TEST(AppStartUp, UnsupportedLanguageFailsTheModelWithItsMessageAndCanBeRetried) {
    LogCapture log;
    ControllerHarness h;
    AppController& c = h.controller();
    c.setLocale(QStringLiteral("xx-XX"));
    h.settle();
    const QString description = QStringLiteral("en-US is not supported by SpeechTranscriber on this system.");
    EXPECT_EQ(c.modelStatus(), ModelStatus::failed(description));
    EXPECT_EQ(c.lastErrorText(), QStringLiteral("Speech model setup failed: ") + description);
    EXPECT_TRUE(log.messages(QtCriticalMsg).contains(QStringLiteral("Model setup failed: ") + description));
    c.pttPressed();
    EXPECT_EQ(c.state(), DictationState::idle);

    c.setLocale(QStringLiteral("en-US"));
    h.settle();
    EXPECT_EQ(c.modelStatus(), ModelStatus::ready());
}

TEST(AppStartUp, FailedDownloadFailsTheModel) {
    ControllerHarness h;
    h.speech.supported << QStringLiteral("fr-FR");
    h.speech.installGate.failure = QStringLiteral("The download was interrupted.");
    AppController& c = h.controller();
    c.setLocale(QStringLiteral("fr-FR"));
    h.settle();
    EXPECT_EQ(c.modelStatus(), ModelStatus::failed(QStringLiteral("The download was interrupted.")));
    EXPECT_EQ(c.lastErrorText(), QStringLiteral("Speech model setup failed: The download was interrupted."));
}

TEST(AppStartUp, OnlyTheLatestLanguageChoicePublishesItsModelStatus) {
    ControllerHarness h;
    h.speech.supported << QStringLiteral("fr-FR") << QStringLiteral("de-DE");
    h.speech.installed << QStringLiteral("de-DE");
    AppController& c = h.controller();
    h.speech.installGate.waits = true;
    h.speech.installGate.failure = QStringLiteral("Too late to matter.");
    c.setLocale(QStringLiteral("fr-FR"));
    c.setLocale(QStringLiteral("de-DE"));
    EXPECT_EQ(c.modelStatus(), ModelStatus::ready());
    h.speech.installGate.release();
    h.settle();
    EXPECT_EQ(c.modelStatus(), ModelStatus::ready());
    EXPECT_FALSE(c.lastError());
}

} // namespace
