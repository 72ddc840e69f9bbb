#include "ControllerHarness.h"
#include "LogCapture.h"

#include "cleanup/CleanupSettings.h"
#include "cleanup/KeychainStore.h"
#include "core/ReferenceDate.h"
#include "hotkey/HotkeyMonitor.h"
#include "hotkey/KeyCodes.h"
#include "output/ReplacementStore.h"
#include "records/HistoryStore.h"
#include "records/UsageTracker.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace murmurly;
using namespace std::chrono_literals;
using murmurly::testing::ControllerHarness;
using murmurly::testing::LogCapture;

namespace {

ReplacementRule rule(const QString& from, const QString& to) {
    ReplacementRule r = ReplacementRule::create();
    r.from = from;
    r.to = to;
    r.caseSensitive = true;
    return r;
}

class AppControllerTest : public ::testing::Test {
protected:
    void SetUp() override {
        h.pasteKeys.onPaste = [this] { pasted << h.clipboard.text(); };
        h.defaults.setBool(HistoryStore::enabledKey, true);
        say(QStringLiteral("hello world"));
    }

    AppController& controller() { return h.controller(); }

    // What the recognizer hears in the next dictation.
    void say(const QString& text) {
        h.speech.script.finalResults.clear();
        if (!text.isEmpty()) h.speech.script.finalResults.push_back({text, true});
    }

    void setMode(CaptureMode mode) {
        h.defaults.setString(AppController::captureModeKey, CaptureModes::rawValue(mode));
    }

    // Runs out the finalisation, the cleanup and the clipboard restore of a dictation that ended.
    void finish() { h.advance(1s); }

    void hold(std::chrono::milliseconds duration) {
        controller().pttPressed();
        h.advance(duration);
        controller().pttReleased();
        finish();
    }

    const QList<HistoryEntry>& history() { return controller().history().entries(); }

    ControllerHarness h;
    QStringList pasted;
};

// ---- one dictation ----

TEST_F(AppControllerTest, HoldModeTriggerHeldForATenthOfASecondInsertsNothing) {
    LogCapture log;
    controller();
    hold(100ms);
    EXPECT_TRUE(pasted.isEmpty());
    EXPECT_TRUE(history().isEmpty());
    EXPECT_EQ(controller().state(), DictationState::idle);
    EXPECT_TRUE(log.appMessages().contains(QStringLiteral("Accidental tap \u2014 dictation cancelled")));
    EXPECT_EQ(*h.speech.liveSessions, 0);
}

// The main thread may take both edges of a hold at once, long after the key went down (a busy
// machine): the hold is measured between the key events as they were read.
TEST_F(AppControllerTest, AHoldIsMeasuredBetweenItsKeyEventsNotWhenTheyAreHandled) {
    controller();
    ASSERT_TRUE(controller().hotkeyMonitor().isRunning());
    h.keyEvents.send(KeyEvent::Type::flagsChanged, KeyCodes::rightOption, ModifierFlags::option);
    h.clock.advance(1s);
    h.keyEvents.send(KeyEvent::Type::flagsChanged, KeyCodes::rightOption, 0);
    QCoreApplication::processEvents(); // both edges, handled in one go
    finish();
    EXPECT_EQ(pasted, QStringList{QStringLiteral("hello world ")});
}

TEST_F(AppControllerTest, ATapWhoseReleaseIsHandledLateIsStillATap) {
    LogCapture log;
    controller();
    ASSERT_TRUE(controller().hotkeyMonitor().isRunning());
    h.keyEvents.send(KeyEvent::Type::flagsChanged, KeyCodes::rightOption, ModifierFlags::option);
    QCoreApplication::processEvents(); // the press is handled at once
    h.clock.advance(50ms);
    h.keyEvents.send(KeyEvent::Type::flagsChanged, KeyCodes::rightOption, 0);
    h.clock.advance(1s); // the main thread is busy; the release waits
    QCoreApplication::processEvents();
    finish();
    EXPECT_TRUE(log.appMessages().contains(QStringLiteral("Accidental tap \u2014 dictation cancelled")));
    EXPECT_TRUE(pasted.isEmpty());
}

TEST_F(AppControllerTest, HoldModeTriggerHeldExactlyTheMinimumCounts) {
    controller();
    hold(150ms);
    EXPECT_EQ(pasted, QStringList{QStringLiteral("hello world ")});
    EXPECT_EQ(history().size(), 1);
}

TEST_F(AppControllerTest, HoldModeReleaseStopsRecordingAndInsertsWithTrailingSpace) {
    LogCapture log;
    controller();
    controller().pttPressed();
    EXPECT_EQ(controller().state(), DictationState::recording);
    EXPECT_EQ(controller().stateLabel(), QStringLiteral("Recording\u2026"));
    EXPECT_TRUE(controller().hotkeyMonitor().cancelArmed());
    EXPECT_TRUE(h.microphone->isRunning());
    h.advance(1s);
    controller().pttReleased();
    EXPECT_EQ(controller().state(), DictationState::transcribing);
    EXPECT_FALSE(controller().hotkeyMonitor().cancelArmed());
    finish();
    EXPECT_EQ(controller().state(), DictationState::idle);
    EXPECT_EQ(pasted, QStringList{QStringLiteral("hello world ")});
    EXPECT_FALSE(h.microphone->isRunning());
    EXPECT_EQ(*h.speech.liveSessions, 0);
    EXPECT_FALSE(log.matching(QStringLiteral("Dictation started (audio format: ")).isEmpty());
    EXPECT_TRUE(log.appMessages().contains(QStringLiteral("Transcript: <private>")));
}

TEST_F(AppControllerTest, StatesPassThroughTranscribingCleaningAndInsertingInOrder) {
    h.defaults.setBool(AppController::cleanupEnabledKey, true);
    controller();
    QList<DictationState> seen;
    QObject::connect(&controller(), &AppController::stateChanged, [&](DictationState s) { seen << s; });
    hold(1s);
    EXPECT_EQ(seen, (QList<DictationState>{DictationState::recording, DictationState::transcribing,
                                           DictationState::cleaning, DictationState::inserting,
                                           DictationState::idle}));
}

TEST_F(AppControllerTest, ToggleModeFirstTapStartsReleasesAreIgnoredSecondTapInserts) {
    setMode(CaptureMode::toggle);
    controller();
    controller().pttPressed();
    EXPECT_EQ(controller().stateLabel(), QStringLiteral("Listening\u2026 (tap to stop)"));
    h.advance(50ms);
    controller().pttReleased();
    h.advance(2s);
    EXPECT_EQ(controller().state(), DictationState::recording);
    controller().pttPressed();
    EXPECT_EQ(controller().state(), DictationState::transcribing);
    controller().pttReleased();
    finish();
    EXPECT_EQ(pasted, QStringList{QStringLiteral("hello world ")});
    EXPECT_EQ(controller().state(), DictationState::idle);
}

TEST_F(AppControllerTest, ToggleModeEscBetweenTheTapsCancelsWithoutInserting) {
    LogCapture log;
    setMode(CaptureMode::toggle);
    controller();
    controller().pttPressed();
    h.advance(1s);
    // Esc reaches the controller through the monitor, which reports it only while armed.
    EXPECT_TRUE(h.keyEvents.send(KeyEvent::Type::keyDown, KeyCodes::escape));
    h.settle();
    EXPECT_EQ(controller().state(), DictationState::idle);
    EXPECT_FALSE(controller().hotkeyMonitor().cancelArmed());
    EXPECT_TRUE(log.appMessages().contains(QStringLiteral("Dictation cancelled by user")));
    controller().pttPressed(); // a later tap starts a new dictation rather than inserting the old one
    EXPECT_EQ(controller().state(), DictationState::recording);
    controller().cancelDictation();
    finish();
    EXPECT_TRUE(pasted.isEmpty());
    EXPECT_TRUE(history().isEmpty());
    EXPECT_EQ(*h.speech.liveSessions, 0);
}

TEST_F(AppControllerTest, EscInHoldModeCancelsTheRecording) {
    controller();
    controller().pttPressed();
    h.advance(1s);
    controller().cancelDictation();
    controller().pttReleased();
    finish();
    EXPECT_TRUE(pasted.isEmpty());
    EXPECT_EQ(controller().state(), DictationState::idle);
}

TEST_F(AppControllerTest, PressWhileTranscribingCleaningOrInsertingIsIgnoredInBothModes) {
    for (const CaptureMode mode : CaptureModes::allCases) {
        SCOPED_TRACE(CaptureModes::rawValue(mode).toStdString());
        ControllerHarness harness;
        int pastes = 0;
        harness.pasteKeys.onPaste = [&] { ++pastes; };
        harness.speech.script.finalResults = {{QStringLiteral("one"), true}};
        harness.speech.script.finalize = murmurly::testing::FakeSessionScript::Finalize::hangs;
        harness.localModel.waits = true;
        harness.defaults.setBool(AppController::cleanupEnabledKey, true);
        harness.defaults.setString(AppController::captureModeKey, CaptureModes::rawValue(mode));
        AppController& c = harness.controller();
        c.pttPressed();
        harness.advance(500ms);
        if (mode == CaptureMode::hold)
            c.pttReleased();
        else
            c.pttPressed();

        ASSERT_EQ(c.state(), DictationState::transcribing);
        c.pttPressed();
        c.cancelDictation();
        EXPECT_EQ(c.state(), DictationState::transcribing);

        harness.advance(8s); // the finalisation gives up and the text it has is used
        ASSERT_EQ(c.state(), DictationState::cleaning);
        c.pttPressed();
        c.cancelDictation();
        EXPECT_EQ(c.state(), DictationState::cleaning);

        harness.localModel.releaseWaiting();
        harness.settle();
        ASSERT_EQ(c.state(), DictationState::inserting);
        c.pttPressed();
        c.cancelDictation();
        EXPECT_EQ(c.state(), DictationState::inserting);

        harness.advance(1s);
        EXPECT_EQ(c.state(), DictationState::idle);
        EXPECT_EQ(pastes, 1);
        EXPECT_EQ(harness.speech.sessionLanguages.size(), 1);
    }
}

TEST_F(AppControllerTest, PressIsRefusedWhileTheModelIsNotReady) {
    LogCapture log;
    h.speech.installed.clear();
    h.speech.installGate.waits = true;
    controller();
    EXPECT_EQ(controller().modelStatus(), ModelStatus::downloading());
    controller().pttPressed();
    EXPECT_EQ(controller().state(), DictationState::idle);
    EXPECT_FALSE(controller().lastError());
    EXPECT_TRUE(log.appMessages().contains(QStringLiteral("Trigger pressed but model not ready")));
    h.speech.installGate.release();
    h.settle();
    EXPECT_EQ(controller().modelStatus(), ModelStatus::ready());
    controller().pttPressed();
    EXPECT_EQ(controller().state(), DictationState::recording);
}

// ---- the watchdog ----

TEST_F(AppControllerTest, RecordingLongerThanFiveMinutesIsStoppedWithinOnePollAndInserted) {
    LogCapture log;
    setMode(CaptureMode::toggle);
    controller();
    controller().pttPressed();
    h.advance(300s);
    EXPECT_EQ(controller().state(), DictationState::recording);
    h.clock.advance(300ms);
    EXPECT_EQ(controller().state(), DictationState::transcribing);
    EXPECT_TRUE(log.appMessages().contains(
        QStringLiteral("Recording exceeded 5 minutes \u2014 watchdog stopping it")));
    finish();
    EXPECT_EQ(pasted, QStringList{QStringLiteral("hello world ")});
}

TEST_F(AppControllerTest, HoldModeLostKeyUpStopsRecordingOnceTheTriggerWasSeenDownThenUp) {
    LogCapture log;
    controller();
    h.keyState.down.insert(KeyCodes::rightOption);
    controller().pttPressed();
    h.advance(300ms);
    EXPECT_EQ(controller().state(), DictationState::recording);
    h.keyState.down.clear(); // released, but the key-up never arrived
    h.clock.advance(300ms);
    EXPECT_EQ(controller().state(), DictationState::transcribing);
    EXPECT_TRUE(log.appMessages().contains(
        QStringLiteral("Release event was lost \u2014 watchdog stopping recording")));
    finish();
    EXPECT_EQ(pasted, QStringList{QStringLiteral("hello world ")});
}

TEST_F(AppControllerTest, LostReleaseCheckNeverFiresBeforeTheTriggerWasSeenDown) {
    controller();
    controller().pttPressed(); // released before the first poll: the release event handles it
    h.advance(3s);
    EXPECT_EQ(controller().state(), DictationState::recording);
}

TEST_F(AppControllerTest, LostReleaseCheckIsNotArmedInToggleMode) {
    setMode(CaptureMode::toggle);
    controller();
    h.keyState.down.insert(KeyCodes::rightOption);
    controller().pttPressed();
    h.advance(600ms);
    h.keyState.down.clear();
    h.advance(3s);
    EXPECT_EQ(controller().state(), DictationState::recording);
}

TEST_F(AppControllerTest, ReleaseAfterTheWatchdogStoppedTheRecordingIsIgnored) {
    controller();
    h.speech.script.finalize = murmurly::testing::FakeSessionScript::Finalize::hangs;
    h.keyState.down.insert(KeyCodes::rightOption);
    controller().pttPressed();
    h.advance(300ms);
    h.keyState.down.clear();
    h.advance(300ms);
    ASSERT_EQ(controller().state(), DictationState::transcribing);
    controller().pttReleased();
    EXPECT_EQ(controller().state(), DictationState::transcribing);
    h.advance(10s);
    EXPECT_EQ(pasted.size(), 1);
    EXPECT_EQ(history().size(), 1);
}

TEST_F(AppControllerTest, WatchdogEndsWhenTheRecordingEndsOtherwise) {
    controller();
    controller().pttPressed();
    h.advance(1s);
    controller().pttReleased();
    finish();
    // No sleeping watchdog is left polling once idle.
    h.advance(1s);
    const std::size_t sleeping = h.clock.pendingSleeps();
    EXPECT_LE(sleeping, 1u); // the permission poll only
}

// ---- start failures and the order of start, finish and cancel ----

TEST_F(AppControllerTest, FailedStartReturnsToIdleWithItsMessageAndLeavesEscArmed) {
    LogCapture log;
    h.speech.format.reset();
    controller();
    controller().pttPressed();
    EXPECT_EQ(controller().state(), DictationState::idle);
    EXPECT_EQ(
        controller().lastErrorText(),
        QStringLiteral("Could not start dictation: SpeechTranscriber reported no compatible audio format."));
    EXPECT_TRUE(
        log.messages(QtCriticalMsg)
            .contains(QStringLiteral("Failed to start dictation: SpeechTranscriber reported no compatible "
                                     "audio format.")));
    EXPECT_FALSE(controller().hasEngine());
    EXPECT_FALSE(h.microphone->isRunning());
    // Esc stays armed (and swallowed) until the next dictation ends; the cancels it reports do nothing.
    EXPECT_TRUE(controller().hotkeyMonitor().cancelArmed());
    EXPECT_TRUE(h.keyEvents.send(KeyEvent::Type::keyDown, KeyCodes::escape));
    h.settle();
    EXPECT_EQ(controller().state(), DictationState::idle);
    EXPECT_FALSE(log.appMessages().contains(QStringLiteral("Dictation cancelled by user")));
}

TEST_F(AppControllerTest, RecognizerThatCannotStartGivesCouldNotStartDictation) {
    h.speech.script.startError = QStringLiteral("The recognizer is busy.");
    controller();
    controller().pttPressed();
    h.settle();
    EXPECT_EQ(controller().state(), DictationState::idle);
    EXPECT_EQ(controller().lastErrorText(),
              QStringLiteral("Could not start dictation: The recognizer is busy."));
    EXPECT_EQ(*h.speech.liveSessions, 0);
}

TEST_F(AppControllerTest, ModelThatFailedToLoadGivesCouldNotStartDictationAndMarksTheModelFailed) {
    h.speech.script.modelLoadError = QStringLiteral("The acoustic model folder has no mdef file.");
    controller();
    h.settle();
    ASSERT_TRUE(controller().modelStatus().isReady());
    controller().pttPressed();
    h.settle();
    EXPECT_EQ(controller().state(), DictationState::idle);
    EXPECT_EQ(controller().lastErrorText(),
              QStringLiteral("Could not start dictation: The acoustic model folder has no mdef file."));
    EXPECT_EQ(controller().modelStatus(),
              ModelStatus::failed(QStringLiteral("The acoustic model folder has no mdef file.")));
    EXPECT_EQ(controller().modelStatus().message,
              QStringLiteral("The acoustic model folder has no mdef file."));
    // The trigger does nothing more until the model is checked again.
    controller().pttPressed();
    EXPECT_EQ(controller().state(), DictationState::idle);
}

TEST_F(AppControllerTest,
       ModelLoadFailingDuringTheDictationGivesCouldNotStartDictationAndMarksTheModelFailed) {
    controller();
    h.settle();
    controller().pttPressed();
    h.advance(1s);
    ASSERT_EQ(controller().state(), DictationState::recording);
    ASSERT_TRUE(h.session());
    h.session()->results()->failToLoad(QStringLiteral("The language model file is truncated."));
    controller().pttReleased();
    h.advance(1s);
    EXPECT_EQ(controller().state(), DictationState::idle);
    EXPECT_TRUE(pasted.isEmpty());
    EXPECT_EQ(controller().lastErrorText(),
              QStringLiteral("Could not start dictation: The language model file is truncated."));
    EXPECT_EQ(controller().modelStatus().message, QStringLiteral("The language model file is truncated."));
    EXPECT_FALSE(controller().modelStatus().isReady());
}

TEST_F(AppControllerTest, MicrophoneThatCannotStartGivesCouldNotStartDictation) {
    controller();
    h.microphone->failStartWith(QStringLiteral("No microphone is connected."));
    controller().pttPressed();
    h.settle();
    EXPECT_EQ(controller().state(), DictationState::idle);
    EXPECT_EQ(controller().lastErrorText(),
              QStringLiteral("Could not start dictation: No microphone is connected."));
    EXPECT_EQ(*h.speech.liveSessions, 0);
}

TEST_F(AppControllerTest, FinishWaitsForAStartStillInProgress) {
    h.speech.script.startWaits = true;
    controller();
    controller().pttPressed();
    ASSERT_NE(h.session(), nullptr);
    ASSERT_TRUE(h.session()->startIsWaiting());
    EXPECT_FALSE(h.microphone->isRunning());
    h.advance(1s);
    controller().pttReleased();
    finish();
    EXPECT_EQ(controller().state(), DictationState::transcribing);
    EXPECT_TRUE(pasted.isEmpty());
    h.session()->releaseStart();
    finish();
    EXPECT_EQ(controller().state(), DictationState::idle);
    EXPECT_EQ(pasted, QStringList{QStringLiteral("hello world ")});
    // The audio started by the late start was stopped by the finish that waited for it.
    EXPECT_FALSE(h.microphone->isRunning());
}

TEST_F(AppControllerTest, CancelWaitsForAStartStillInProgressAndStopsItsAudio) {
    h.speech.script.startWaits = true;
    controller();
    controller().pttPressed();
    controller().cancelDictation();
    EXPECT_EQ(controller().state(), DictationState::recording); // until the cancel task has run
    EXPECT_FALSE(controller().hasEngine());
    h.speech.lastSession->releaseStart();
    h.settle();
    EXPECT_EQ(controller().state(), DictationState::idle);
    EXPECT_FALSE(h.microphone->isRunning());
    EXPECT_EQ(*h.speech.liveSessions, 0);
    EXPECT_TRUE(pasted.isEmpty());
}

TEST_F(AppControllerTest, StartThatFailsWhileAFinishWaitsInsertsNothing) {
    h.speech.script.startWaits = true;
    h.speech.script.startError = QStringLiteral("The recognizer gave up.");
    setMode(CaptureMode::toggle);
    controller();
    controller().pttPressed();
    controller().pttPressed();
    EXPECT_EQ(controller().state(), DictationState::transcribing);
    h.speech.lastSession->releaseStart();
    finish();
    EXPECT_EQ(controller().state(), DictationState::idle);
    EXPECT_EQ(controller().lastErrorText(),
              QStringLiteral("Could not start dictation: The recognizer gave up."));
    EXPECT_TRUE(pasted.isEmpty());
    EXPECT_TRUE(history().isEmpty());
}

// ---- transcript, replacements, cleanup, history ----

TEST_F(AppControllerTest, AnUnreadableHistoryFileIsKeptAsideAtTheFirstDictationAndTheMenuSaysSoOnce) {
    const QString path = h.historyFilePath();
    QDir().mkpath(QFileInfo(path).absolutePath());
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("{ not a history");
    }
    AppController& c = controller();
    EXPECT_FALSE(c.lastError());

    hold(2s);
    ASSERT_EQ(history().size(), 1);
    const QStringList kept =
        QFileInfo(path).absoluteDir().entryList({QStringLiteral("history.unreadable-*.json")}, QDir::Files);
    ASSERT_EQ(kept.size(), 1);
    EXPECT_EQ(c.lastErrorText(),
              QStringLiteral("History could not be read \u2014 the old file was kept as ") + kept.first() +
                  QLatin1Char('.'));

    QSignalSpy errors(&c, &AppController::lastErrorChanged);
    hold(2s);
    EXPECT_EQ(history().size(), 2);
    EXPECT_EQ(errors.count(), 0);
}

TEST_F(AppControllerTest, EmptyTranscriptInsertsNothingAndRecordsNoHistory) {
    LogCapture log;
    say({});
    controller();
    hold(1s);
    EXPECT_TRUE(pasted.isEmpty());
    EXPECT_TRUE(history().isEmpty());
    EXPECT_FALSE(controller().lastError());
    EXPECT_EQ(controller().state(), DictationState::idle);
    EXPECT_TRUE(log.appMessages().contains(QStringLiteral("Transcript: <private>")));
}

TEST_F(AppControllerTest, TrailingSpaceIsPastedButNotRecordedInHistory) {
    controller();
    // Registered, not written: the preference reads true with nothing stored.
    EXPECT_FALSE(h.defaults.contains(AppController::trailingSpaceKey));
    hold(1s);
    EXPECT_EQ(pasted, QStringList{QStringLiteral("hello world ")});
    ASSERT_EQ(history().size(), 1);
    EXPECT_EQ(history().first().rawText, QStringLiteral("hello world"));
    EXPECT_FALSE(history().first().cleanedText);
}

TEST_F(AppControllerTest, TrailingSpaceOffPastesTheTextAlone) {
    h.defaults.setBool(AppController::trailingSpaceKey, false);
    controller();
    hold(1s);
    EXPECT_EQ(pasted, QStringList{QStringLiteral("hello world")});
}

TEST_F(AppControllerTest, CleanupOffRecordsADashAndCleanedTextOnlyWhenReplacementsChangedIt) {
    controller().replacements().setRules({rule(QStringLiteral("world"), QStringLiteral("World"))});
    controller().replacements().setEnabled(true);
    hold(1s);
    say(QStringLiteral("nothing to change"));
    hold(1s);
    ASSERT_EQ(history().size(), 2);
    const HistoryEntry& unchanged = history().at(0);
    const HistoryEntry& replaced = history().at(1);
    EXPECT_EQ(replaced.providerName, QStringLiteral("\u2014"));
    EXPECT_EQ(replaced.rawText, QStringLiteral("hello world"));
    EXPECT_EQ(replaced.cleanedText, QStringLiteral("hello World"));
    EXPECT_EQ(unchanged.providerName, QStringLiteral("\u2014"));
    EXPECT_FALSE(unchanged.cleanedText);
    EXPECT_EQ(pasted, (QStringList{QStringLiteral("hello World "), QStringLiteral("nothing to change ")}));
}

TEST_F(AppControllerTest, CleanupOnWithAProviderLackingItsKeyInsertsTheReplacedTranscript) {
    h.defaults.setBool(AppController::cleanupEnabledKey, true);
    controller().cleanupSettings().setProvider(CleanupProvider::anthropic);
    controller().replacements().setRules({rule(QStringLiteral("hello"), QStringLiteral("Hello"))});
    controller().replacements().setEnabled(true);
    hold(1s);
    EXPECT_EQ(pasted, QStringList{QStringLiteral("Hello world ")});
    EXPECT_EQ(controller().lastErrorText(),
              QStringLiteral("Cleanup is on but the selected provider isn't configured."));
    EXPECT_TRUE(controller().usage().session().isEmpty());
    ASSERT_EQ(history().size(), 1);
    EXPECT_EQ(history().first().providerName, QStringLiteral("Claude (Anthropic)"));
    EXPECT_EQ(history().first().cleanedText, QStringLiteral("Hello world"));
}

TEST_F(AppControllerTest, SuccessfulCleanupIsInsertedRecordedAndCounted) {
    h.defaults.setBool(AppController::cleanupEnabledKey, true);
    h.localModel.next = {QStringLiteral("Hello, world."), {}};
    controller();
    hold(1s);
    EXPECT_EQ(pasted, QStringList{QStringLiteral("Hello, world. ")});
    ASSERT_EQ(h.localModel.userTurnsSeen.size(), 1);
    EXPECT_EQ(h.localModel.userTurnsSeen.first(), QStringLiteral("hello world"));
    EXPECT_EQ(controller().usage().session().value(QStringLiteral("onDevice")).dictations, 1);
    ASSERT_EQ(history().size(), 1);
    EXPECT_EQ(history().first().providerName, QStringLiteral("On-Device (local)"));
    EXPECT_EQ(history().first().cleanedText, QStringLiteral("Hello, world."));
    EXPECT_FALSE(controller().lastError());
}

TEST_F(AppControllerTest, OnDeviceCleanupAsksTheModelAgainWhenADictationNeedsIt) {
    h.defaults.setBool(AppController::cleanupEnabledKey, true);
    h.localModel.next = {QStringLiteral("Hello, world."), {}};
    // The model server was down at the last check and has started since.
    h.localModel.state = LocalLanguageModel::Availability::serverUnreachable;
    h.localModel.foundOnCheck = LocalLanguageModel::Availability::available;
    controller();
    const int checksBefore = h.localModel.checks;
    hold(1s);
    EXPECT_EQ(h.localModel.checks, checksBefore + 1);
    EXPECT_EQ(pasted, QStringList{QStringLiteral("Hello, world. ")});
    EXPECT_FALSE(controller().lastError());

    // And the other way round: gone since the last check.
    h.localModel.foundOnCheck = LocalLanguageModel::Availability::serverUnreachable;
    hold(1s);
    EXPECT_EQ(h.localModel.checks, checksBefore + 2);
    EXPECT_EQ(pasted.last(), QStringLiteral("hello world "));
    EXPECT_EQ(controller().lastErrorText(),
              QStringLiteral("Cleanup is on but the selected provider isn't configured."));
    EXPECT_EQ(h.localModel.userTurnsSeen.size(), 1);
}

TEST_F(AppControllerTest, FailedCleanupInsertsTheRawTranscriptAndCountsNothing) {
    h.defaults.setBool(AppController::cleanupEnabledKey, true);
    h.localModel.next = {std::nullopt, QStringLiteral("the model crashed")};
    controller();
    hold(1s);
    EXPECT_EQ(pasted, QStringList{QStringLiteral("hello world ")});
    EXPECT_EQ(controller().lastErrorText(),
              QStringLiteral("Cleanup failed \u2014 inserted the raw transcript."));
    EXPECT_TRUE(controller().usage().session().isEmpty());
    ASSERT_EQ(history().size(), 1);
    EXPECT_EQ(history().first().providerName, QStringLiteral("On-Device (local)"));
}

TEST_F(AppControllerTest, LastErrorStaysUntilAnotherReplacesIt) {
    h.defaults.setBool(AppController::cleanupEnabledKey, true);
    h.localModel.next = {std::nullopt, QStringLiteral("down")};
    controller();
    hold(1s);
    const QString failed = controller().lastErrorText();
    h.localModel.next = {QStringLiteral("Fine."), {}};
    hold(1s);
    EXPECT_EQ(controller().lastErrorText(), failed);
    controller().cleanupSettings().setProvider(CleanupProvider::openAICompatible);
    hold(1s);
    EXPECT_EQ(controller().lastErrorText(),
              QStringLiteral("Cleanup is on but the selected provider isn't configured."));
}

TEST_F(AppControllerTest, HistoryEntryNamesTheApplicationFocusedAtThePress) {
    h.activeApplication.application =
        FocusedApplication{QStringLiteral("org.gnome.TextEditor"), QStringLiteral("Text Editor")};
    controller();
    controller().pttPressed();
    h.activeApplication.application =
        FocusedApplication{QStringLiteral("firefox"), QStringLiteral("Firefox")};
    h.advance(1s);
    controller().pttReleased();
    finish();
    ASSERT_EQ(history().size(), 1);
    EXPECT_EQ(history().first().appBundleID, QStringLiteral("org.gnome.TextEditor"));
    // Stamped when the dictation was recorded: after the press, not later than now.
    EXPECT_GE(history().first().timestamp,
              ReferenceDate::seconds(murmurly::testing::ManualClock::defaultStart()) + 1.0);
    EXPECT_LE(history().first().timestamp, ReferenceDate::seconds(h.clock.now()));
}

TEST_F(AppControllerTest, NothingIsRecordedWhileHistoryIsOff) {
    h.defaults.setBool(HistoryStore::enabledKey, false);
    controller();
    hold(1s);
    EXPECT_EQ(pasted.size(), 1);
    EXPECT_TRUE(history().isEmpty());
}

TEST_F(AppControllerTest, ReinsertPastesTheTextAloneWithoutStateOrHistory) {
    controller();
    QSignalSpy states(&controller(), &AppController::stateChanged);
    controller().reinsert(QStringLiteral("from the past"));
    finish();
    EXPECT_EQ(pasted, QStringList{QStringLiteral("from the past")});
    EXPECT_EQ(states.count(), 0);
    EXPECT_TRUE(history().isEmpty());
}

TEST_F(AppControllerTest, ReinsertDuringADictationsPasteFollowsItAndTheClipboardComesBack) {
    controller();
    h.clipboard.items = {ClipboardItem{{QStringLiteral("text/plain"), "mine"}}};
    controller().pttPressed();
    h.advance(1s);
    controller().pttReleased();
    for (int step = 0; step < 100 && pasted.isEmpty(); ++step)
        h.advance(10ms);
    ASSERT_EQ(pasted, QStringList{QStringLiteral("hello world ")});
    ASSERT_EQ(controller().state(), DictationState::inserting);

    // Chosen in the History tab while the dictation's text is still on the clipboard.
    controller().reinsert(QStringLiteral("from the past"));
    EXPECT_EQ(pasted.size(), 1);
    finish();
    EXPECT_EQ(pasted, (QStringList{QStringLiteral("hello world "), QStringLiteral("from the past")}));
    EXPECT_EQ(h.clipboard.text(), QStringLiteral("mine"));
    EXPECT_EQ(controller().state(), DictationState::idle);
    EXPECT_EQ(history().size(), 1);
}

// ---- preferences and the trigger ----

TEST_F(AppControllerTest, CaptureModeReadsThePreferenceOnEveryAccess) {
    controller();
    EXPECT_EQ(controller().captureMode(), CaptureMode::hold);
    h.defaults.setString(AppController::captureModeKey, QStringLiteral("toggle"));
    EXPECT_EQ(controller().captureMode(), CaptureMode::toggle);
    h.defaults.setString(AppController::captureModeKey, QStringLiteral("sideways"));
    EXPECT_EQ(controller().captureMode(), CaptureMode::hold);
    QSignalSpy changed(&controller(), &AppController::captureModeChanged);
    controller().setCaptureMode(CaptureMode::toggle);
    EXPECT_EQ(changed.count(), 1);
    EXPECT_EQ(h.defaults.stringValue(AppController::captureModeKey), QStringLiteral("toggle"));
}

TEST_F(AppControllerTest, NewTriggerIsStoredGivenToTheMonitorAndTheMonitorRestarted) {
    controller();
    controller().hotkeyMonitor().stop();
    const HotkeyBinding f5 = *HotkeyBinding::from(KeyEvent{KeyEvent::Type::keyDown, 96, QString(), 0});
    controller().endHotkeyRecording(f5);
    EXPECT_EQ(controller().hotkeyBinding(), f5);
    EXPECT_EQ(controller().hotkeyMonitor().binding(), f5);
    EXPECT_EQ(HotkeyBinding::load(h.defaults), f5);
    EXPECT_TRUE(controller().hotkeyMonitor().isRunning());

    controller().hotkeyMonitor().stop();
    controller().endHotkeyRecording(std::nullopt);
    EXPECT_EQ(controller().hotkeyBinding(), f5);
    EXPECT_TRUE(controller().hotkeyMonitor().isRunning());
}

TEST_F(AppControllerTest, TriggerKeyEventsDriveADictationThroughTheMonitor) {
    controller();
    const std::uint64_t alt = controller().hotkeyBinding().flagMask;
    h.keyEvents.send(KeyEvent::Type::flagsChanged, KeyCodes::rightOption, alt);
    h.settle();
    EXPECT_EQ(controller().state(), DictationState::recording);
    h.advance(1s);
    h.keyEvents.send(KeyEvent::Type::flagsChanged, KeyCodes::rightOption, 0);
    h.settle();
    finish();
    EXPECT_EQ(pasted, QStringList{QStringLiteral("hello world ")});
}

TEST_F(AppControllerTest, ToggleDictationStartsAndStopsInHoldModeToo) {
    controller();
    controller().toggleDictation();
    EXPECT_EQ(controller().state(), DictationState::recording);
    h.advance(100ms);
    controller().toggleDictation();
    finish();
    EXPECT_EQ(pasted, QStringList{QStringLiteral("hello world ")});
}

} // namespace
