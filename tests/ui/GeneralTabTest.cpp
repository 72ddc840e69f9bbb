// The General tab and its trigger recorder, driven by real key presses on the test's X server.
#include "SettingsFixture.h"

#include "WaitUntil.h"
#include "XTestKeyboard.h"
#include "app/MenuContent.h"
#include "hotkey/HotkeyMonitor.h"
#include "settings/HotkeyRecorder.h"
#include "settings/HotkeyRecorderRow.h"
#include "settings/LocaleOptions.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QTest>

#include <X11/XF86keysym.h>
#include <X11/keysym.h>

using namespace murmurly;
using namespace murmurly::uitest;
using murmurly::testing::ControllerHarness;
using murmurly::testing::waitUntil;
using murmurly::testing::XTestKeyboard;

namespace {

QStringList comboTexts(const QComboBox* box) {
    QStringList texts;
    for (int i = 0; i < box->count(); ++i)
        texts.append(box->itemText(i));
    return texts;
}

// The window open on the General tab with the keyboard focus, ready for key presses.
struct RecorderFixture : SettingsFixture {
    explicit RecorderFixture(ControllerHarness& harness)
        : SettingsFixture(harness)
        , keyEvents(harness.keyEvents) {
        window->showAndRaise();
        EXPECT_TRUE(QTest::qWaitForWindowActive(window.get()));
    }

    HotkeyRecorderRow& row() { return *general->recorderRow(); }
    HotkeyRecorder& recorder() { return row().recorder(); }

    void startRecording() {
        QTest::mouseClick(row().button(), Qt::LeftButton);
        ASSERT_TRUE(recorder().isRecording());
    }

    // Presses and releases `keysym` on the X server and waits until the program has seen both.
    void tap(unsigned long keysym) {
        keyboard.press(keysym);
        keepRunningBriefly();
        keyboard.release(keysym);
        keepRunningBriefly();
    }
    static void keepRunningBriefly() { murmurly::testing::keepRunning(std::chrono::milliseconds(150)); }

    murmurly::testing::FakeKeyEventSource& keyEvents;
    XTestKeyboard keyboard;
};

} // namespace

// ---- the trigger recorder ----

TEST(HotkeyRecorder, ShowsTheKeyTheDesktopAssignedWhereTheDesktopDecidesIt) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    harness.keyEvents.assign(QStringLiteral("Ctrl+Alt+D"));
    EXPECT_EQ(f.general->recorderRow()->triggerLabel()->text(), QStringLiteral("Ctrl+Alt+D"));
}

TEST(HotkeyRecorder, ShowsTheTriggerAndRecordingStopsTheMonitor) {
    ControllerHarness harness;
    RecorderFixture f(harness);
    EXPECT_EQ(f.row().triggerLabel()->text(), QStringLiteral("Right Alt"));
    EXPECT_EQ(f.row().button()->text(), QStringLiteral("Change\u2026"));
    EXPECT_FALSE(f.row().warningLabel()->isVisible());
    ASSERT_TRUE(f.keyEvents.running);

    f.startRecording();
    EXPECT_FALSE(f.keyEvents.running);
    EXPECT_FALSE(f.controller.hotkeyMonitor().isRunning());
    EXPECT_EQ(f.row().triggerLabel()->text(),
              QStringLiteral("Press a key or modifier\u2026 (Esc to cancel)"));
    EXPECT_EQ(f.row().button()->text(), QStringLiteral("Cancel"));
    f.window->resize(f.window->minimumSize());
    // The whole prompt is readable at the narrowest width, once the layout has settled: the
    // narrower label first keeps its one-line height until the next layout pass gives it two.
    QLabel* prompt = f.row().triggerLabel();
    const auto fits = [&] {
        const QRect room = prompt->contentsRect();
        const QRect needed = prompt->fontMetrics().boundingRect(room, Qt::TextWordWrap, prompt->text());
        return needed.width() <= room.width() && needed.height() <= room.height();
    };
    EXPECT_TRUE(waitUntil([&] { return f.window->size() == f.window->minimumSize() && fits(); }))
        << "window " << f.window->width() << "x" << f.window->height() << ", label " << prompt->width() << "x"
        << prompt->height();
    saveScreenshot(f.window.get(), QStringLiteral("settings-general-recording"));
}

TEST(HotkeyRecorder, PressingRightAltRecordsItOnThePressAndItsReleaseIsNotANewBinding) {
    ControllerHarness harness;
    HotkeyBinding f6{HotkeyBinding::Kind::key, 97, 0, QStringLiteral("F6")};
    f6.save(harness.defaults);
    RecorderFixture f(harness);
    ASSERT_TRUE(f.keyboard.isOpen());
    EXPECT_EQ(f.row().triggerLabel()->text(), QStringLiteral("F6"));
    f.startRecording();

    f.keyboard.press(XK_Alt_R);
    ASSERT_TRUE(waitUntil([&] { return !f.recorder().isRecording(); }));
    const HotkeyBinding expected{HotkeyBinding::Kind::modifier, 61, 0x80000, QStringLiteral("Right Alt")};
    EXPECT_EQ(f.controller.hotkeyBinding(), expected);
    EXPECT_EQ(harness.defaults.bytesValue(HotkeyBinding::defaultsKey),
              QByteArray(R"({"kind":"modifier","keyCode":61,"flagMask":524288,"displayName":"Right Alt"})"));
    EXPECT_TRUE(f.keyEvents.running);
    EXPECT_EQ(f.row().triggerLabel()->text(), QStringLiteral("Right Alt"));

    f.keyboard.release(XK_Alt_R);
    RecorderFixture::keepRunningBriefly();
    EXPECT_FALSE(f.recorder().isRecording());
    EXPECT_EQ(f.controller.hotkeyBinding(), expected);
    EXPECT_FALSE(f.row().warningLabel()->isVisible());
}

TEST(HotkeyRecorder, EscCancelsAndLeavesThePreviousTriggerWithTheMonitorRunning) {
    ControllerHarness harness;
    RecorderFixture f(harness);
    const HotkeyBinding before = f.controller.hotkeyBinding();
    const int startsBefore = f.keyEvents.starts;
    f.startRecording();
    f.tap(XK_Escape);
    EXPECT_FALSE(f.recorder().isRecording());
    EXPECT_EQ(f.controller.hotkeyBinding(), before);
    EXPECT_TRUE(f.keyEvents.running);
    EXPECT_EQ(f.keyEvents.starts, startsBefore + 1);
    EXPECT_FALSE(harness.defaults.contains(HotkeyBinding::defaultsKey));
    EXPECT_EQ(f.row().triggerLabel()->text(), QStringLiteral("Right Alt"));
    EXPECT_EQ(f.row().button()->text(), QStringLiteral("Change\u2026"));
}

TEST(HotkeyRecorder, CancelButtonStopsRecordingWithTheTriggerUnchanged) {
    ControllerHarness harness;
    RecorderFixture f(harness);
    const HotkeyBinding before = f.controller.hotkeyBinding();
    f.startRecording();
    QTest::mouseClick(f.row().button(), Qt::LeftButton);
    EXPECT_FALSE(f.recorder().isRecording());
    EXPECT_EQ(f.controller.hotkeyBinding(), before);
    EXPECT_TRUE(f.keyEvents.running);
}

TEST(HotkeyRecorder, PressingQRecordsATypeableKeyAndShowsTheWarning) {
    ControllerHarness harness;
    RecorderFixture f(harness);
    f.startRecording();
    f.tap(XK_q);
    EXPECT_FALSE(f.recorder().isRecording());
    EXPECT_EQ(f.controller.hotkeyBinding(),
              (HotkeyBinding{HotkeyBinding::Kind::key, 12, 0, QStringLiteral("Q")}));
    EXPECT_TRUE(f.row().warningLabel()->isVisible());
    EXPECT_EQ(
        f.row().warningLabel()->text(),
        QStringLiteral("This key normally types a character; it will be intercepted while Murmurly is "
                       "running. A modifier (like Right Alt) or a function key is usually a better choice."));
    EXPECT_EQ(f.row().triggerLabel()->text(), QStringLiteral("Q"));
    saveScreenshot(f.window.get(), QStringLiteral("settings-general-typeable-warning"));

    // The warning stays until the next recording starts.
    RecorderFixture::keepRunningBriefly();
    EXPECT_TRUE(f.row().warningLabel()->isVisible());
    f.startRecording();
    EXPECT_FALSE(f.row().warningLabel()->isVisible());
}

TEST(HotkeyRecorder, PressingF6RecordsItWithoutTheWarning) {
    ControllerHarness harness;
    RecorderFixture f(harness);
    f.startRecording();
    f.tap(XK_F6);
    EXPECT_EQ(f.controller.hotkeyBinding(),
              (HotkeyBinding{HotkeyBinding::Kind::key, 97, 0, QStringLiteral("F6")}));
    EXPECT_FALSE(f.row().warningLabel()->isVisible());
}

TEST(HotkeyRecorder, CapsLockDoesNothingAndRecordingGoesOn) {
    ControllerHarness harness;
    RecorderFixture f(harness);
    const HotkeyBinding before = f.controller.hotkeyBinding();
    f.startRecording();
    f.tap(XK_Caps_Lock);
    f.tap(XK_Caps_Lock); // and off again, for the keys after it
    EXPECT_TRUE(f.recorder().isRecording());
    EXPECT_FALSE(f.keyEvents.running);
    EXPECT_EQ(f.controller.hotkeyBinding(), before);
    // The next real key still records.
    f.tap(XK_F5);
    EXPECT_FALSE(f.recorder().isRecording());
    EXPECT_EQ(f.controller.hotkeyBinding().displayName, QStringLiteral("F5"));
}

TEST(HotkeyRecorder, ModifiersAreRecordedWithTheirLinuxNames) {
    ControllerHarness harness;
    RecorderFixture f(harness);
    const struct {
        unsigned long keysym;
        HotkeyBinding binding;
    } cases[] = {
        {XK_Control_L, {HotkeyBinding::Kind::modifier, 59, 0x40000, QStringLiteral("Left Control")}},
        {XK_Shift_R, {HotkeyBinding::Kind::modifier, 60, 0x20000, QStringLiteral("Right Shift")}},
        {XK_Super_L, {HotkeyBinding::Kind::modifier, 55, 0x100000, QStringLiteral("Left Super")}},
        {XK_Alt_L, {HotkeyBinding::Kind::modifier, 58, 0x80000, QStringLiteral("Left Alt")}},
    };
    for (const auto& c : cases) {
        f.startRecording();
        f.tap(c.keysym);
        EXPECT_FALSE(f.recorder().isRecording()) << qPrintable(c.binding.displayName);
        EXPECT_EQ(f.controller.hotkeyBinding(), c.binding);
        EXPECT_EQ(f.row().triggerLabel()->text(), c.binding.displayName);
        EXPECT_FALSE(f.row().warningLabel()->isVisible());
    }
}

TEST(HotkeyRecorder, TheEventThatCompletesARecordingDoesNotReachTheWindowsControls) {
    ControllerHarness harness;
    RecorderFixture f(harness);
    // A text field of the program with the keyboard focus.
    QLineEdit field;
    field.show();
    field.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&field));
    field.setFocus();
    f.tap(XK_a);
    ASSERT_TRUE(waitUntil([&] { return field.text() == QStringLiteral("a"); }));

    f.recorder().start();
    f.tap(XK_q);
    EXPECT_EQ(f.controller.hotkeyBinding().displayName, QStringLiteral("Q"));
    EXPECT_EQ(field.text(), QStringLiteral("a"));
    // Once recorded, keys type again.
    f.tap(XK_b);
    EXPECT_TRUE(waitUntil([&] { return field.text() == QStringLiteral("ab"); }));
}

TEST(HotkeyRecorder, ShortcutsDoNotFireWhileRecording) {
    ControllerHarness harness;
    RecorderFixture f(harness);
    int fired = 0;
    auto* shortcut = new QAction(f.window.get());
    shortcut->setShortcut(QKeySequence(Qt::Key_F7));
    f.window->addAction(shortcut);
    QObject::connect(shortcut, &QAction::triggered, [&] { ++fired; });
    f.tap(XK_F7);
    ASSERT_EQ(fired, 1);
    f.startRecording();
    f.tap(XK_F7);
    EXPECT_EQ(fired, 1);
    EXPECT_EQ(f.controller.hotkeyBinding().displayName, QStringLiteral("F7"));
}

TEST(HotkeyRecorder, ClosingTheWindowWhileRecordingStartsTheMonitorAgain) {
    ControllerHarness harness;
    RecorderFixture f(harness);
    f.startRecording();
    ASSERT_FALSE(f.keyEvents.running);
    f.window->close();
    EXPECT_FALSE(f.recorder().isRecording());
    EXPECT_TRUE(f.keyEvents.running);
    EXPECT_EQ(f.controller.hotkeyBinding().displayName, QStringLiteral("Right Alt"));
}

// ---- the rest of the tab ----

TEST(GeneralTab, SectionsAndTextsAtTheWindowsMinimumSize) {
    ControllerHarness harness;
    harness.speech.supported = {QStringLiteral("en-US"), QStringLiteral("fr-FR")};
    SettingsFixture f(harness);
    f.showAtMinimumSize(SettingsTab::general);
    const QStringList texts = visibleLabelTexts(f.general);
    for (const QString& text :
         {QStringLiteral("Trigger"), QStringLiteral("Capture mode"),
          QStringLiteral("Hold the trigger to dictate; release to insert. Press Esc to cancel."),
          QStringLiteral("Dictation language"), QStringLiteral("Model: ready"), GeneralTab::languageHelp,
          GeneralTab::cleanupHelp, QStringLiteral("Current input"), QStringLiteral("Built-in Microphone")})
        EXPECT_TRUE(texts.contains(text)) << qPrintable(text);
    QStringList sections;
    for (const QGroupBox* group : f.general->findChildren<QGroupBox*>())
        sections.append(group->title());
    EXPECT_EQ(sections, (QStringList{QStringLiteral("Dictation"), QStringLiteral("Language"),
                                     QStringLiteral("Speech engine"), QStringLiteral("Cleanup"),
                                     QStringLiteral("Startup"), QStringLiteral("Microphone")}));
    EXPECT_EQ(comboTexts(f.general->captureModeBox()),
              (QStringList{QStringLiteral("Hold to talk"), QStringLiteral("Toggle (tap to start/stop)")}));
    EXPECT_EQ(f.general->trailingSpaceBox()->text(),
              QStringLiteral("Append a trailing space after each dictation"));
    EXPECT_EQ(f.general->cleanupBox()->text(), QStringLiteral("Clean up transcripts"));
    EXPECT_EQ(f.general->launchAtLoginBox()->text(), QStringLiteral("Launch Murmurly at login"));
    EXPECT_EQ(f.window->size(), QSize(620, 420));
    saveScreenshot(f.window.get(), QStringLiteral("settings-general-minimum"));
}

TEST(GeneralTab, FieldsOfAllSectionsLineUp) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    f.show(SettingsTab::general);
    const auto x = [&](const QWidget* widget) { return widget->mapTo(f.general, QPoint(0, 0)).x(); };
    // Labelled fields share one column across the sections; switches start at the sections' edge.
    const int field = x(f.general->captureModeBox());
    EXPECT_EQ(x(f.general->recorderRow()), field);
    EXPECT_EQ(x(f.general->languageBox()), field);
    EXPECT_EQ(x(f.general->currentInputLabel()), field);
    EXPECT_EQ(x(f.general->captureModeHelp()), field);
    const int edge = x(f.general->trailingSpaceBox());
    EXPECT_LT(edge, field);
    EXPECT_EQ(x(f.general->cleanupBox()), edge);
    EXPECT_EQ(x(f.general->launchAtLoginBox()), edge);
}

TEST(GeneralTab, WithNoSupportedLocalesYetThePickerIsEmptyAndTheHelpStillShows) {
    ControllerHarness harness;
    harness.speech.supported = {};
    SettingsFixture f(harness);
    f.showAtMinimumSize(SettingsTab::general);
    EXPECT_EQ(f.general->languageBox()->count(), 0);
    EXPECT_TRUE(f.general->languageHelpLabel()->isVisible());
    EXPECT_EQ(f.general->languageHelpLabel()->text(), GeneralTab::languageHelp);
}

TEST(GeneralTab, ALocaleWithoutANameIsShownAsItsIdentifierTwice) {
    ControllerHarness harness;
    harness.speech.supported = {QStringLiteral("xx-YY"), QStringLiteral("en-US")};
    SettingsFixture f(harness);
    EXPECT_EQ(
        comboTexts(f.general->languageBox()),
        (QStringList{QStringLiteral("English (United States) (en-US)"), QStringLiteral("xx-YY (xx-YY)")}));
}

TEST(GeneralTab, TwoLocalesWithTheSameIdentifierAppearOnce) {
    ControllerHarness harness;
    harness.speech.supported = {QStringLiteral("en-US"), QStringLiteral("en_US"), QStringLiteral("en-us"),
                                QStringLiteral("de-DE")};
    SettingsFixture f(harness);
    EXPECT_EQ(comboTexts(f.general->languageBox()),
              (QStringList{QStringLiteral("English (United States) (en-US)"),
                           QStringLiteral("German (Germany) (de-DE)")}));
    EXPECT_EQ(f.general->languageBox()->currentText(), QStringLiteral("English (United States) (en-US)"));
}

TEST(GeneralTab, LocalesAreSortedByNameWithoutRegardToCase) {
    const QList<LocaleOption> options =
        LocaleOptions::from({QStringLiteral("fr-FR"), QStringLiteral("xx-YY"), QStringLiteral("qu-PE"),
                             QStringLiteral("de-DE"), QStringLiteral("en-GB"), QStringLiteral("Qq-aa")});
    QStringList names;
    for (const LocaleOption& option : options)
        names.append(option.displayName);
    EXPECT_EQ(names,
              (QStringList{QStringLiteral("English (United Kingdom) (en-GB)"),
                           QStringLiteral("French (France) (fr-FR)"),
                           QStringLiteral("German (Germany) (de-DE)"), QStringLiteral("qq-AA (qq-AA)"),
                           QStringLiteral("Quechua (Peru) (qu-PE)"), QStringLiteral("xx-YY (xx-YY)")}));
}

TEST(GeneralTab, ChoosingALanguageWithoutItsModelDownloadsItAndShowsTheStatus) {
    ControllerHarness harness;
    harness.speech.supported = {QStringLiteral("en-US"), QStringLiteral("fr-FR")};
    SettingsFixture f(harness);
    f.showAtMinimumSize(SettingsTab::general);
    QComboBox* box = f.general->languageBox();
    ASSERT_EQ(box->currentData().toString(), QStringLiteral("en-US"));
    QStringList statuses;
    QObject::connect(&f.controller, &AppController::modelStatusChanged,
                     [&] { statuses.append(f.general->modelStatusLabel()->text()); });
    box->setFocus();
    QTest::keyClick(box, Qt::Key_Down); // a closed combo box steps to the next entry
    EXPECT_EQ(box->currentData().toString(), QStringLiteral("fr-FR"));
    EXPECT_EQ(f.controller.dictationLocaleID(), QStringLiteral("fr-FR"));
    EXPECT_EQ(harness.defaults.stringValue(AppController::dictationLocaleKey), QStringLiteral("fr-FR"));
    EXPECT_EQ(statuses,
              (QStringList{QStringLiteral("Model: checking\u2026"),
                           QStringLiteral("Model: downloading\u2026"), QStringLiteral("Model: ready")}));
    EXPECT_EQ(harness.speech.downloads, 1);
    EXPECT_EQ(f.general->modelStatusLabel()->text(), QStringLiteral("Model: ready"));
}

TEST(GeneralTab, WithoutAnyAudioInputTheMicrophoneSectionShowsNoMicrophone) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    f.inputName.name.reset();
    f.showAtMinimumSize(SettingsTab::general);
    EXPECT_EQ(f.general->currentInputLabel()->text(), QStringLiteral("No microphone"));
    // Read again each time the tab is shown.
    f.inputName.name = QStringLiteral("USB Headset Mono");
    f.window->selectPage(QStringLiteral("Usage"));
    f.window->selectPage(QStringLiteral("General"));
    EXPECT_EQ(f.general->currentInputLabel()->text(), QStringLiteral("USB Headset Mono"));
}

TEST(GeneralTab, SwitchingCaptureModeSwitchesTheHelpTextAtOnce) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    f.showAtMinimumSize(SettingsTab::general);
    QComboBox* box = f.general->captureModeBox();
    box->setFocus();
    QTest::keyClick(box, Qt::Key_Down);
    EXPECT_EQ(f.controller.captureMode(), CaptureMode::toggle);
    EXPECT_EQ(harness.defaults.stringValue(AppController::captureModeKey), QStringLiteral("toggle"));
    EXPECT_EQ(f.general->captureModeHelp()->text(),
              QStringLiteral("Tap the trigger to start, tap again to stop. Press Esc to cancel."));
    // Changed elsewhere: the tab follows.
    f.controller.setCaptureMode(CaptureMode::hold);
    EXPECT_EQ(box->currentText(), QStringLiteral("Hold to talk"));
    EXPECT_EQ(f.general->captureModeHelp()->text(),
              QStringLiteral("Hold the trigger to dictate; release to insert. Press Esc to cancel."));
}

TEST(GeneralTab, SwitchesWriteThePreferencesAndAgreeWithTheMenu) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    MenuContent menu(f.controller, f.controller.usage(), f.controller.cleanupSettings());
    f.showAtMinimumSize(SettingsTab::general);
    EXPECT_TRUE(f.general->trailingSpaceBox()->isChecked());
    EXPECT_FALSE(f.general->cleanupBox()->isChecked());

    clickCheckBox(f.general->trailingSpaceBox());
    EXPECT_EQ(harness.defaults.boolValue(AppController::trailingSpaceKey), false);
    EXPECT_FALSE(findAction(*menu.menu(), QStringLiteral("Append Trailing Space"))->isChecked());

    findAction(*menu.menu(), QStringLiteral("Clean Up Transcripts"))->trigger();
    EXPECT_TRUE(f.general->cleanupBox()->isChecked());
    f.general->cleanupBox()->setFocus();
    QTest::keyClick(f.general->cleanupBox(), Qt::Key_Space);
    EXPECT_EQ(harness.defaults.boolValue(AppController::cleanupEnabledKey), false);
    EXPECT_FALSE(findAction(*menu.menu(), QStringLiteral("Clean Up Transcripts"))->isChecked());
}

TEST(GeneralTab, LaunchAtLoginFollowsTheDesktopAlsoAfterAFailure) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    f.show(SettingsTab::general);
    QCheckBox* box = f.general->launchAtLoginBox();
    EXPECT_TRUE(box->isChecked()); // made on the first start
    clickCheckBox(box);
    EXPECT_FALSE(harness.loginItem.enabled);
    EXPECT_FALSE(box->isChecked());

    harness.loginItem.failure = QStringLiteral("autostart folder is read-only");
    clickCheckBox(box);
    EXPECT_EQ(harness.loginItem.registrations, 2);
    EXPECT_FALSE(box->isChecked());
    EXPECT_EQ(f.controller.lastErrorText(), QStringLiteral("Launch at login: autostart folder is read-only"));
}

TEST(GeneralTab, OnADesktopWithoutATraySaysHowToReachTheSettings) {
    ControllerHarness harness;
    SettingsFixture f(harness);
    f.showAtMinimumSize(SettingsTab::general);
    EXPECT_FALSE(visibleLabelTexts(f.general).contains(GeneralTab::noTrayNote));
    f.general->setNoTrayNoteShown(true);
    f.settleLayout();
    EXPECT_TRUE(visibleLabelTexts(f.general).contains(GeneralTab::noTrayNote));
    EXPECT_TRUE(GeneralTab::noTrayNote.contains(QStringLiteral("murmurly --settings")));
    // The whole note is readable: it wraps within the window instead of being cut off.
    EXPECT_GE(f.general->noTrayNoteLabel()->height(),
              f.general->noTrayNoteLabel()->heightForWidth(f.general->noTrayNoteLabel()->width()));
    // The page scrolls within the window; shown where the note is.
    auto* scroller = qobject_cast<QScrollArea*>(f.general->parentWidget()->parentWidget());
    ASSERT_NE(scroller, nullptr);
    scroller->ensureWidgetVisible(f.general->noTrayNoteLabel());
    f.settleLayout();
    saveScreenshot(f.window.get(), QStringLiteral("settings-general-no-tray"));
    f.general->setNoTrayNoteShown(false);
    EXPECT_FALSE(visibleLabelTexts(f.general).contains(GeneralTab::noTrayNote));
}
