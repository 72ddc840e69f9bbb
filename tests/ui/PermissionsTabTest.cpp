// The Permissions tab: status, buttons and what they do, kept current by the controller's poll.
#include "SettingsFixture.h"

#include "core/Permissions.h"
#include "hotkey/HotkeyMonitor.h"

#include <QLabel>
#include <QPushButton>
#include <QTest>

using namespace murmurly;
using namespace murmurly::uitest;
using murmurly::testing::ControllerHarness;

TEST(PermissionsTab, TextsOfBothRowsAndTheFooter) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    f.showAtMinimumSize(SettingsTab::permissions);
    const QStringList texts = visibleLabelTexts(f.permissions);
    EXPECT_EQ(texts,
              (QStringList{QStringLiteral("Microphone"),
                           QStringLiteral("Required to capture your voice while you dictate."),
                           QStringLiteral("Keyboard access"),
                           QStringLiteral("Required for the global push-to-talk key and for typing text into "
                                          "other apps."),
                           QStringLiteral("Status here updates automatically within a few seconds.")}));
    EXPECT_EQ(f.permissions->microphoneButton()->text(), QStringLiteral("Open Settings"));
    EXPECT_EQ(f.permissions->keyboardButton()->text(), QStringLiteral("Open Settings"));
    EXPECT_EQ(f.permissions->microphoneStatus()->accessibleName(), QStringLiteral("Microphone: granted"));
    saveScreenshot(f.window.get(), QStringLiteral("settings-permissions-granted-minimum"));
}

TEST(PermissionsTab, MicrophoneRowStaysRedWhateverARequestAnswersUntilThePollSeesAccess) {
    ControllerHarness harness;
    harness.permissions.microphone = false;
    SettingsFixture f(harness);
    f.showAtMinimumSize(SettingsTab::permissions);
    QPushButton* button = f.permissions->microphoneButton();
    EXPECT_EQ(button->text(), QStringLiteral("Request Access"));
    EXPECT_EQ(f.permissions->microphoneStatus()->accessibleName(), QStringLiteral("Microphone: not granted"));
    const QImage red = f.permissions->microphoneStatus()->pixmap().toImage();

    const int requestsBefore = harness.permissions.microphoneRequests;
    QTest::mouseClick(button, Qt::LeftButton);
    harness.settle();
    EXPECT_EQ(harness.permissions.microphoneRequests, requestsBefore + 1);
    EXPECT_TRUE(harness.permissions.openedPanes.isEmpty());
    EXPECT_EQ(button->text(), QStringLiteral("Request Access"));
    EXPECT_EQ(f.permissions->microphoneStatus()->pixmap().toImage(), red);
    saveScreenshot(f.window.get(), QStringLiteral("settings-permissions-missing-minimum"));

    // Granted in the desktop's settings: green within one poll.
    harness.permissions.microphone = true;
    harness.advance(3s);
    EXPECT_EQ(button->text(), QStringLiteral("Open Settings"));
    EXPECT_EQ(f.permissions->microphoneStatus()->accessibleName(), QStringLiteral("Microphone: granted"));
    EXPECT_NE(f.permissions->microphoneStatus()->pixmap().toImage(), red);
    QTest::mouseClick(button, Qt::LeftButton);
    EXPECT_EQ(harness.permissions.openedPanes, QStringList{Permissions::microphonePane});
}

TEST(PermissionsTab, GrantedKeyboardAccessTurnsTheRowGreenWithinAPollAndStartsTheMonitor) {
    ControllerHarness harness;
    harness.permissions.keyboard = false;
    harness.keyEvents.available = false; // without access the keyboard cannot be watched
    SettingsFixture f(harness);
    f.showAtMinimumSize(SettingsTab::permissions);
    EXPECT_EQ(f.permissions->keyboardButton()->text(), QStringLiteral("Check\u2026"));
    EXPECT_EQ(f.permissions->keyboardStatus()->accessibleName(),
              QStringLiteral("Keyboard access: not granted"));
    EXPECT_FALSE(harness.keyEvents.running);

    harness.permissions.keyboard = true;
    harness.keyEvents.available = true;
    harness.advance(3s);
    EXPECT_EQ(f.permissions->keyboardStatus()->accessibleName(), QStringLiteral("Keyboard access: granted"));
    EXPECT_EQ(f.permissions->keyboardButton()->text(), QStringLiteral("Open Settings"));
    EXPECT_TRUE(harness.keyEvents.running);
    QTest::mouseClick(f.permissions->keyboardButton(), Qt::LeftButton);
    EXPECT_EQ(harness.permissions.openedPanes, QStringList{Permissions::keyboardPane});
}

TEST(PermissionsTab, CheckAsksAgainAndStoresTheAnswerWithoutOpeningSettings) {
    ControllerHarness harness;
    harness.permissions.keyboard = false;
    SettingsFixture f(harness);
    f.showAtMinimumSize(SettingsTab::permissions);
    const int promptsBefore = harness.permissions.keyboardPrompts;
    QTest::mouseClick(f.permissions->keyboardButton(), Qt::LeftButton);
    EXPECT_EQ(harness.permissions.keyboardPrompts, promptsBefore + 1);
    EXPECT_FALSE(f.controller.axTrusted());
    EXPECT_EQ(f.permissions->keyboardButton()->text(), QStringLiteral("Check\u2026"));

    harness.permissions.keyboard = true;
    QTest::mouseClick(f.permissions->keyboardButton(), Qt::LeftButton);
    EXPECT_TRUE(f.controller.axTrusted());
    EXPECT_EQ(f.permissions->keyboardButton()->text(), QStringLiteral("Open Settings"));
    EXPECT_TRUE(harness.permissions.openedPanes.isEmpty());
}

TEST(PermissionsTab, CheckStartsTheTriggerListenerThatFailedAtStartUp) {
    ControllerHarness harness;
    harness.permissions.keyboard = false;
    harness.keyEvents.available = false;
    SettingsFixture f(harness);
    f.showAtMinimumSize(SettingsTab::permissions);
    ASSERT_FALSE(f.controller.hotkeyMonitor().isRunning());

    harness.permissions.keyboard = true;
    harness.keyEvents.available = true;
    QTest::mouseClick(f.permissions->keyboardButton(), Qt::LeftButton);
    EXPECT_TRUE(f.controller.hotkeyMonitor().isRunning());
    harness.advance(6s);
    EXPECT_TRUE(f.controller.hotkeyMonitor().isRunning());
}

// What the desktop answers later (a shortcut it refused) replaces a service row's text and sign.
TEST(PermissionsTab, AServiceRowFollowsTheDesktopsLaterAnswer) {
    ControllerHarness harness;
    PermissionsTab tab(
        harness.controller(),
        {{QStringLiteral("Trigger key"), QStringLiteral("Bound through the desktop's shortcuts."), true},
         {QStringLiteral("Typing into other apps"), QStringLiteral("Pasted."), true}});
    ASSERT_EQ(tab.serviceDetails().size(), 2);
    tab.setServiceRow(
        0, {QStringLiteral("Trigger key"), QStringLiteral("The desktop refused the shortcut."), false});
    EXPECT_EQ(tab.serviceDetails().at(0)->text(), QStringLiteral("The desktop refused the shortcut."));
    EXPECT_EQ(tab.serviceStatuses().at(0)->accessibleName(), QStringLiteral("Trigger key: not granted"));
    EXPECT_EQ(tab.serviceDetails().at(1)->text(), QStringLiteral("Pasted."));
    EXPECT_EQ(tab.serviceStatuses().at(1)->accessibleName(),
              QStringLiteral("Typing into other apps: granted"));
    // A row that does not exist changes nothing.
    tab.setServiceRow(2, {QStringLiteral("Nothing"), QStringLiteral("no such row"), false});
    ASSERT_EQ(tab.serviceDetails().size(), 2);
    EXPECT_EQ(tab.serviceDetails().at(0)->text(), QStringLiteral("The desktop refused the shortcut."));
    EXPECT_EQ(tab.serviceDetails().at(1)->text(), QStringLiteral("Pasted."));
}
