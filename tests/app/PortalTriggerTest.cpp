// The trigger through the desktop's global-shortcuts portal: Debian's real xdg-desktop-portal on a
// private session bus, with a stand-in for the desktop's side that binds what it is asked, tells
// of activations on the test's command, and can refuse, reassign or end a session. The
// controller runs on fakes and virtual time for everything else, so each rule of the trigger
// (hold, tap, watchdog, toggle, Esc) is checked against the portal's real signals.
#include "ControllerHarness.h"
#include "PortalOnPrivateBus.h"
#include "WaitUntil.h"

#include "app/PortalKeyEventSource.h"
#include "core/AppController.h"

#include <QDBusConnection>

#include <gtest/gtest.h>

using namespace murmurly;
using namespace murmurly::testing;
using namespace std::chrono_literals;

namespace {

const QString spoken = QStringLiteral("and mister john dashwood had then leisure");

class PortalTriggerTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(desktop.error().isEmpty()) << desktop.error().toStdString();
        source = std::make_unique<PortalKeyEventSource>(desktop.connection());
        h.pasteKeys.onPaste = [this] { pasted << h.clipboard.text(); };
        h.speech.script.finalResults = {{spoken, true}};
        h.keySource = source.get();
    }

    void TearDown() override {
        h.destroyController();
        source.reset();
    }

    // Builds the controller, whose start-up opens the portal session, and waits for the bind.
    bool startBound() {
        h.controller();
        return waitUntil([&] { return source->assignedTrigger().has_value(); }, 30s);
    }

    // Signals through the stand-in and waits until the controller has seen the edge.
    bool activate() { return desktop.portal().activate(PortalKeyEventSource::dictateId).value_or(0) == 1; }
    bool deactivate() {
        return desktop.portal().deactivate(PortalKeyEventSource::dictateId).value_or(0) == 1;
    }
    bool waitForState(DictationState state) {
        return waitUntil([&] { return h.controller().state() == state; }, 30s);
    }
    bool waitForInsertion() {
        const bool inserted = waitUntil([&] { return !pasted.isEmpty(); }, 30s);
        h.advance(1s);
        return inserted;
    }
    // Every request the portal received so far has been answered and its signals delivered.
    void settleSignals() {
        // A round trip to the stand-in: its answer comes after every signal it sent before.
        ASSERT_TRUE(desktop.portal().bindRequests().has_value());
        h.settle();
    }

    PortalOnPrivateBus desktop{QStringLiteral("murmurly-portal-trigger-test")};
    std::unique_ptr<PortalKeyEventSource> source;
    ControllerHarness h;
    QStringList pasted;
};

} // namespace

TEST_F(PortalTriggerTest, TheBindAsksForTheChosenKeyAndTheTriggerShownIsTheOneTheDesktopAssigned) {
    HotkeyBinding f5{HotkeyBinding::Kind::key, 96, 0, QStringLiteral("F5")};
    f5.save(h.defaults);
    ASSERT_TRUE(
        desktop.portal().setAssignedTrigger(PortalKeyEventSource::dictateId, QStringLiteral("Ctrl+Alt+D")));
    ASSERT_TRUE(startBound());
    const auto requests = desktop.portal().bindRequests();
    ASSERT_TRUE(requests);
    ASSERT_EQ(requests->size(), 1);
    ASSERT_EQ(requests->at(0).shortcuts.size(), 1);
    EXPECT_EQ(requests->at(0).shortcuts.at(0).id, PortalKeyEventSource::dictateId);
    EXPECT_EQ(requests->at(0).shortcuts.at(0).description, QStringLiteral("Dictate"));
    EXPECT_EQ(requests->at(0).shortcuts.at(0).preferredTrigger, QStringLiteral("F5"));
    EXPECT_EQ(h.controller().triggerName(), QStringLiteral("Ctrl+Alt+D"));
    EXPECT_TRUE(source->note().isEmpty());
}

TEST_F(PortalTriggerTest, AModifierAloneIsNotAskedForButAProposedKeyWithOneLineWhy) {
    ASSERT_TRUE(startBound()); // the default binding, Right Alt
    const auto requests = desktop.portal().bindRequests();
    ASSERT_TRUE(requests);
    ASSERT_EQ(requests->size(), 1);
    EXPECT_EQ(requests->at(0).shortcuts.at(0).preferredTrigger, PortalKeyEventSource::proposedTrigger);
    EXPECT_EQ(h.controller().triggerName(), PortalKeyEventSource::proposedTrigger);
    EXPECT_EQ(source->note(), QStringLiteral("Desktop shortcuts cannot be a modifier key alone, so Murmurly "
                                             "asked the desktop for F9 instead of Right Alt."));
}

TEST_F(PortalTriggerTest, AKeyTheDesktopReassignsLaterIsShownAsReassigned) {
    ASSERT_TRUE(startBound());
    int changes = 0;
    QObject::connect(&h.controller(), &AppController::hotkeyBindingChanged, [&] { ++changes; });
    ASSERT_EQ(desktop.portal().changeTrigger(PortalKeyEventSource::dictateId, QStringLiteral("Shift+F12")),
              1u);
    ASSERT_TRUE(waitUntil([&] { return h.controller().triggerName() == QStringLiteral("Shift+F12"); }, 30s));
    EXPECT_EQ(changes, 1);
}

TEST_F(PortalTriggerTest, OneActivationIsOnePressAndItsDeactivationOneRelease) {
    ASSERT_TRUE(startBound());
    ASSERT_TRUE(activate());
    ASSERT_TRUE(waitForState(DictationState::recording));
    // The desktop repeats the activation while the key is held: still one press.
    ASSERT_TRUE(activate());
    settleSignals();
    h.advance(1s);
    EXPECT_EQ(h.controller().state(), DictationState::recording);
    ASSERT_TRUE(deactivate());
    ASSERT_TRUE(waitForInsertion());
    EXPECT_EQ(pasted, QStringList{spoken + QLatin1Char(' ')});
    EXPECT_EQ(h.controller().state(), DictationState::idle);
    EXPECT_EQ(h.speech.sessionLanguages.size(), 1);
}

TEST_F(PortalTriggerTest, AReleaseWithinAFractionOfASecondIsATapAndInsertsNothing) {
    ASSERT_TRUE(startBound());
    ASSERT_TRUE(activate());
    ASSERT_TRUE(waitForState(DictationState::recording));
    h.advance(100ms);
    ASSERT_TRUE(deactivate());
    ASSERT_TRUE(waitForState(DictationState::idle));
    h.advance(2s);
    EXPECT_TRUE(pasted.isEmpty());
}

TEST_F(PortalTriggerTest, AnActivationWithoutDeactivationIsEndedByTheRecordingLimit) {
    ASSERT_TRUE(startBound());
    ASSERT_TRUE(activate());
    ASSERT_TRUE(waitForState(DictationState::recording));
    h.advance(AppController::recordingLimit + 2 * AppController::watchdogInterval);
    ASSERT_TRUE(waitForInsertion());
    EXPECT_EQ(pasted, QStringList{spoken + QLatin1Char(' ')});
}

TEST_F(PortalTriggerTest, InToggleModeOneActivationStartsAndTheNextInserts) {
    h.defaults.setString(AppController::captureModeKey, CaptureModes::rawValue(CaptureMode::toggle));
    ASSERT_TRUE(startBound());
    ASSERT_TRUE(activate());
    ASSERT_TRUE(waitForState(DictationState::recording));
    ASSERT_TRUE(deactivate());
    settleSignals();
    h.advance(2s);
    EXPECT_EQ(h.controller().state(), DictationState::recording) << "the release does not stop it";
    ASSERT_TRUE(activate());
    ASSERT_TRUE(waitForInsertion());
    EXPECT_EQ(pasted, QStringList{spoken + QLatin1Char(' ')});
}

TEST_F(PortalTriggerTest, EscIsBoundOnlyWhileRecordingAndCancelsThen) {
    ASSERT_TRUE(startBound());
    EXPECT_EQ(desktop.portal().sessionsBinding(PortalKeyEventSource::cancelId), 0u)
        << "Esc is not taken while idle";
    EXPECT_EQ(desktop.portal().activate(PortalKeyEventSource::cancelId), 0u);

    ASSERT_TRUE(activate());
    ASSERT_TRUE(waitForState(DictationState::recording));
    ASSERT_TRUE(waitUntil(
        [&] { return desktop.portal().sessionsBinding(PortalKeyEventSource::cancelId) == 1u; }, 30s));
    const auto requests = desktop.portal().bindRequests();
    ASSERT_TRUE(requests);
    ASSERT_EQ(requests->size(), 2);
    EXPECT_EQ(requests->at(1).shortcuts.at(0).preferredTrigger, QStringLiteral("Escape"));
    ASSERT_EQ(desktop.portal().activate(PortalKeyEventSource::cancelId), 1u);
    ASSERT_TRUE(waitForState(DictationState::idle));
    ASSERT_TRUE(deactivate());
    h.advance(2s);
    EXPECT_TRUE(pasted.isEmpty());
    EXPECT_TRUE(waitUntil(
        [&] { return desktop.portal().sessionsBinding(PortalKeyEventSource::cancelId) == 0u; }, 30s))
        << "Esc is given back when the recording ends";
}

TEST_F(PortalTriggerTest, ADismissedBindLeavesTheProgramRunningWithTheFallbackExplained) {
    ASSERT_TRUE(desktop.portal().setBindAnswer(1));
    h.controller();
    ASSERT_TRUE(waitUntil([&] { return source->isRefused(); }, 30s));
    EXPECT_FALSE(source->isRunning());
    EXPECT_FALSE(source->assignedTrigger());
    EXPECT_EQ(h.controller().triggerName(), QStringLiteral("Right Alt"));
    EXPECT_TRUE(source->note().startsWith(QStringLiteral("The shortcut was dismissed on the desktop.")))
        << source->note().toStdString();
    // Not asked again by itself.
    h.advance(3 * AppController::permissionPollInterval);
    settleSignals();
    EXPECT_EQ(desktop.portal().bindRequests()->size(), 1);

    // Choosing the trigger anew asks again.
    ASSERT_TRUE(desktop.portal().setBindAnswer(0));
    h.controller().endHotkeyRecording(HotkeyBinding{HotkeyBinding::Kind::key, 96, 0, QStringLiteral("F5")});
    ASSERT_TRUE(waitUntil([&] { return source->assignedTrigger() == QStringLiteral("F5"); }, 30s));
    EXPECT_FALSE(source->isRefused());
    EXPECT_EQ(h.controller().triggerName(), QStringLiteral("F5"));
}

TEST_F(PortalTriggerTest, ASessionTheDesktopEndsIsOpenedAgainWithinOnePollAndAHeldKeyIsReleased) {
    ASSERT_TRUE(startBound());
    ASSERT_TRUE(activate());
    ASSERT_TRUE(waitForState(DictationState::recording));
    h.advance(1s);
    ASSERT_TRUE(waitUntil(
        [&] { return desktop.portal().sessionsBinding(PortalKeyEventSource::cancelId) == 1u; }, 30s));
    ASSERT_EQ(desktop.portal().closeSessions(), 2u); // the trigger's and Esc's
    // The key can no longer be released through the desktop: what was said is inserted.
    ASSERT_TRUE(waitForInsertion());
    EXPECT_EQ(pasted, QStringList{spoken + QLatin1Char(' ')});
    ASSERT_TRUE(waitUntil([&] { return !source->isRunning(); }, 30s));

    h.advance(AppController::permissionPollInterval);
    ASSERT_TRUE(waitUntil(
        [&] { return desktop.portal().sessionsBinding(PortalKeyEventSource::dictateId) == 1u; }, 30s));
    ASSERT_TRUE(waitUntil([&] { return source->assignedTrigger().has_value(); }, 30s));
    pasted.clear();
    ASSERT_TRUE(activate());
    ASSERT_TRUE(waitForState(DictationState::recording));
    h.advance(1s);
    ASSERT_TRUE(deactivate());
    ASSERT_TRUE(waitForInsertion());
}

TEST_F(PortalTriggerTest, APortalThatRestartsIsFoundAgainWithinOnePoll) {
    ASSERT_TRUE(startBound());
    ASSERT_TRUE(desktop.portal().restartFrontend()) << desktop.portal().error().toStdString();
    ASSERT_TRUE(waitUntil([&] { return !source->isRunning(); }, 30s));
    h.advance(AppController::permissionPollInterval);
    ASSERT_TRUE(waitUntil([&] { return source->assignedTrigger().has_value(); }, 30s));
    ASSERT_TRUE(activate());
    ASSERT_TRUE(waitForState(DictationState::recording));
}

TEST(PortalTriggerNotation, KeysAreNamedInTheShortcutsNotationAndOthersGetTheProposedKey) {
    using Kind = HotkeyBinding::Kind;
    EXPECT_EQ(PortalKeyEventSource::preferredTrigger({Kind::key, 101, 0, QStringLiteral("F9")}),
              QStringLiteral("F9"));
    EXPECT_EQ(PortalKeyEventSource::preferredTrigger({Kind::key, 0, 0, QStringLiteral("A")}),
              QStringLiteral("a"));
    EXPECT_EQ(PortalKeyEventSource::preferredTrigger({Kind::key, 49, 0, QStringLiteral(" ")}),
              QStringLiteral("space"));
    EXPECT_EQ(PortalKeyEventSource::preferredTrigger({Kind::key, 18, 0, QStringLiteral("1")}),
              QStringLiteral("1"));
    EXPECT_TRUE(PortalKeyEventSource::preferredTrigger(HotkeyBinding::defaultBinding()).isEmpty());
    EXPECT_TRUE(
        PortalKeyEventSource::preferredTrigger({Kind::key, 300, 0, QStringLiteral("Key 300")}).isEmpty());

    PortalKeyEventSource source(QDBusConnection(QStringLiteral("not connected")));
    source.setBinding({Kind::key, 300, 0, QStringLiteral("Key 300")});
    EXPECT_EQ(source.requestedTrigger(), PortalKeyEventSource::proposedTrigger);
    EXPECT_EQ(source.note(),
              QStringLiteral(
                  "Desktop shortcuts cannot name Key 300, so Murmurly asked the desktop for F9 instead."));
}
