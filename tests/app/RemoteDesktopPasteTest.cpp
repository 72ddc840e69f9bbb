// The paste chord through the desktop's remote-desktop portal: Debian's real xdg-desktop-portal on
// a private session bus, with a stand-in for the desktop's side that counts the consents it asks
// for and records every key it is told to press.
#include "FakeClipboard.h"
#include "ManualClock.h"
#include "MemoryDefaults.h"
#include "PortalOnPrivateBus.h"
#include "WaitUntil.h"

#include "app/CommandLine.h"
#include "app/HostPortalRegistration.h"
#include "app/RemoteDesktopPasteKeys.h"
#include "output/TextInserter.h"

#include <QDBusConnection>

#include <csignal>

#include <gtest/gtest.h>

using namespace murmurly;
using namespace murmurly::testing;
using namespace std::chrono_literals;

namespace {

using Keys = QList<QPair<int, uint>>;
const Keys ctrlV{{0xffe3, 1}, {0x76, 1}, {0x76, 0}, {0xffe3, 0}};

// Dictated words inserted through `keys` over what the user had copied, on a clipboard and clock of
// the test's own: the clipboard holds the words until the clock passes the restore delay.
struct Insertion {
    explicit Insertion(PasteKeys& keys)
        : inserter(clipboard, keys, clock) {
        clipboard.writeText(QStringLiteral("what the user copied"));
        task = inserter.insert(QStringLiteral("the dictated words"));
    }

    FakeClipboard clipboard;
    ManualClock clock;
    TextInserter inserter;
    QCoro::Task<> task;
};

class RemoteDesktopPasteTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(desktop.error().isEmpty()) << desktop.error().toStdString(); }

    void TearDown() override { keys.reset(); }

    RemoteDesktopPasteKeys& started(HostPortalRegistration* registration = nullptr) {
        keys = std::make_unique<RemoteDesktopPasteKeys>(desktop.connection(), defaults, registration);
        QObject::connect(keys.get(), &RemoteDesktopPasteKeys::chordEnded,
                         [this](bool complete) { chordsEnded << complete; });
        keys->start();
        return *keys;
    }
    bool ready() {
        return waitUntil([&] { return keys->state() == RemoteDesktopPasteKeys::State::ready; }, 30s);
    }
    // How the last chord ended, once `count` chords have.
    std::optional<bool> chordEnded(qsizetype count) {
        if (!waitUntil([&] { return chordsEnded.size() >= count; }, 30s)) return std::nullopt;
        return chordsEnded.at(count - 1);
    }
    bool settled() {
        return waitUntil([&] { return keys->state() != RemoteDesktopPasteKeys::State::asking; }, 30s);
    }
    // The keys the desktop received, once it holds `count` of them.
    Keys received(qsizetype count) {
        std::optional<Keys> seen;
        waitUntil(
            [&] {
                seen = desktop.portal().keysyms();
                return seen && seen->size() >= count;
            },
            30s);
        return seen.value_or(Keys());
    }

    PortalOnPrivateBus desktop{QStringLiteral("murmurly-remote-desktop-test")};
    MemoryDefaults defaults;
    std::unique_ptr<RemoteDesktopPasteKeys> keys;
    QList<bool> chordsEnded;
};

} // namespace

TEST_F(RemoteDesktopPasteTest, TheDesktopIsOfferedAndAsksOnceThenTheChordIsPressedAsKeysymsInOrder) {
    EXPECT_TRUE(RemoteDesktopPasteKeys::isOffered(desktop.connection()));
    RemoteDesktopPasteKeys& k = started();
    ASSERT_TRUE(settled());
    ASSERT_EQ(k.state(), RemoteDesktopPasteKeys::State::ready) << k.problem().toStdString();
    EXPECT_EQ(desktop.portal().consentRequests(), 1u);
    ASSERT_TRUE(k.paste());
    EXPECT_EQ(received(4), ctrlV);
    ASSERT_TRUE(k.paste());
    EXPECT_EQ(received(8), ctrlV + ctrlV);
    EXPECT_EQ(desktop.portal().consentRequests(), 1u) << "one consent for every chord of the run";
}

TEST_F(RemoteDesktopPasteTest, ATerminalGetsCtrlShiftV) {
    RemoteDesktopPasteKeys& k = started();
    k.setTerminalCheck([] { return true; });
    ASSERT_TRUE(settled());
    ASSERT_TRUE(k.paste());
    EXPECT_EQ(received(6), (Keys{{0xffe3, 1}, {0xffe1, 1}, {0x76, 1}, {0x76, 0}, {0xffe1, 0}, {0xffe3, 0}}));
}

TEST_F(RemoteDesktopPasteTest, ARefusedConsentPastesNothingAndSaysWhy) {
    ASSERT_TRUE(desktop.portal().setConsentAnswer(1));
    RemoteDesktopPasteKeys& k = started();
    ASSERT_TRUE(settled());
    EXPECT_EQ(k.state(), RemoteDesktopPasteKeys::State::refused);
    EXPECT_EQ(k.problem(), QStringLiteral("The desktop's permission to press keys was not given."));
    EXPECT_FALSE(k.paste());
    EXPECT_EQ(desktop.portal().keysyms(), Keys());

    // Asked again (the user's "Check…"), and given this time.
    ASSERT_TRUE(desktop.portal().setConsentAnswer(0));
    k.start();
    ASSERT_TRUE(settled());
    EXPECT_EQ(k.state(), RemoteDesktopPasteKeys::State::ready) << k.problem().toStdString();
    EXPECT_TRUE(k.paste());
    EXPECT_EQ(received(4), ctrlV);
}

// The chord cannot be made, so the inserter keeps its promise about the user's clipboard: what was
// there before is put back after the delay, and the failure is logged.
TEST_F(RemoteDesktopPasteTest, WithConsentRefusedAnInsertionPutsTheClipboardBack) {
    ASSERT_TRUE(desktop.portal().setConsentAnswer(1));
    RemoteDesktopPasteKeys& k = started();
    ASSERT_TRUE(settled());
    Insertion insertion(k);
    FakeClipboard& clipboard = insertion.clipboard;
    EXPECT_EQ(clipboard.text(), QStringLiteral("the dictated words"));
    insertion.clock.advance(200ms);
    ASSERT_TRUE(waitUntil([&] { return insertion.task.isReady(); }, 30s));
    EXPECT_EQ(clipboard.text(), QStringLiteral("what the user copied"));
    EXPECT_EQ(desktop.portal().keysyms(), Keys());
}

TEST_F(RemoteDesktopPasteTest, ASessionTheDesktopEndsPastesNothingMore) {
    RemoteDesktopPasteKeys& k = started();
    ASSERT_TRUE(settled());
    ASSERT_EQ(k.state(), RemoteDesktopPasteKeys::State::ready);
    ASSERT_GE(desktop.portal().closeSessions().value_or(0), 1u);
    ASSERT_TRUE(waitUntil([&] { return k.state() == RemoteDesktopPasteKeys::State::ended; }, 30s));
    EXPECT_FALSE(k.paste());
    EXPECT_FALSE(k.problem().isEmpty());
}

// Debian's frontend hands out no token and drops the one offered; a token kept from a desktop that
// does hand them out must neither stop the start nor be lost.
TEST_F(RemoteDesktopPasteTest, AStoredTokenIsKeptWhenTheDesktopHandsOutNone) {
    defaults.setString(RemoteDesktopPasteKeys::restoreTokenKey,
                       QStringLiteral("8d5c2a1e-0f64-4c43-9c1d-2f1b7a0e3c55"));
    RemoteDesktopPasteKeys& k = started();
    ASSERT_TRUE(settled());
    EXPECT_EQ(k.state(), RemoteDesktopPasteKeys::State::ready) << k.problem().toStdString();
    EXPECT_EQ(defaults.stringValue(RemoteDesktopPasteKeys::restoreTokenKey),
              QStringLiteral("8d5c2a1e-0f64-4c43-9c1d-2f1b7a0e3c55"));
}

// Debian's frontend (1.16) has no application registry: the program is told so and carries on.
TEST_F(RemoteDesktopPasteTest, APortalWithoutTheApplicationRegistryStillGivesTheKeyboard) {
    HostPortalRegistration registration(desktop.connection(), CommandLine::applicationId);
    RemoteDesktopPasteKeys& k = started(&registration);
    EXPECT_EQ(registration.outcome(), HostPortalRegistration::Outcome::absent);
    ASSERT_TRUE(settled());
    ASSERT_EQ(k.state(), RemoteDesktopPasteKeys::State::ready) << k.problem().toStdString();
    ASSERT_TRUE(k.paste());
    EXPECT_EQ(received(4), ctrlV);
    EXPECT_EQ(chordEnded(1), true);
}

// The portal ends while the chord is under way (Ctrl sent, V not yet): the chord ends as failed
// instead of waiting, nothing of it reaches the desktop afterwards, the clipboard is put back,
// and the portal, once back, is asked for the keyboard again, so the next chord works.
TEST_F(RemoteDesktopPasteTest, ADesktopThatGoesAwayMidChordEndsTheChordAndTheClipboardIsPutBack) {
    RemoteDesktopPasteKeys& k = started();
    ASSERT_TRUE(ready()) << k.problem().toStdString();
    // Held still, the frontend takes Ctrl from the bus but never answers it.
    ASSERT_EQ(::kill(static_cast<pid_t>(desktop.portal().frontendProcessId()), SIGSTOP), 0);
    Insertion insertion(k);
    FakeClipboard& clipboard = insertion.clipboard;
    EXPECT_EQ(clipboard.text(), QStringLiteral("the dictated words"));
    EXPECT_TRUE(chordsEnded.isEmpty());

    // Ended (SIGTERM, then SIGKILL, which also ends a stopped process) and started again.
    ASSERT_TRUE(desktop.portal().restartFrontend()) << desktop.portal().error().toStdString();
    EXPECT_EQ(chordEnded(1), false);
    EXPECT_EQ(desktop.portal().keysyms(), Keys()) << "the desktop was left with no key pressed";
    insertion.clock.advance(200ms);
    ASSERT_TRUE(waitUntil([&] { return insertion.task.isReady(); }, 30s));
    EXPECT_EQ(clipboard.text(), QStringLiteral("what the user copied"));

    ASSERT_TRUE(ready()) << k.problem().toStdString();
    EXPECT_EQ(desktop.portal().consentRequests(), 2u);
    EXPECT_EQ(desktop.portal().remoteDesktopSessions(), 1u) << "only the new session is left";
    ASSERT_TRUE(k.paste());
    EXPECT_EQ(received(4), ctrlV);
    EXPECT_EQ(chordEnded(2), true);
}
