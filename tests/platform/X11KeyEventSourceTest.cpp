// The hotkey monitor on a real X server: key events made with XTest, the X11 key source reading
// them, and a real window with the keyboard focus telling which events reached it.
#include "platform/linux/X11KeyEventSource.h"
#include "MemoryDefaults.h"
#include "TextFieldWindowProcess.h"
#include "WaitUntil.h"
#include "XTestKeyboard.h"
#include "XvfbServer.h"
#include "core/SystemClock.h"
#include "hotkey/HotkeyMonitor.h"
#include "hotkey/KeyCodes.h"
#include "platform/linux/X11OwnKeyEvents.h"
#include "platform/linux/XTestPasteKeys.h"

#include <QDir>
#include <QFile>
#include <QThread>

#include <gtest/gtest.h>

#include <X11/keysym.h>

#include <mutex>
#include <tuple>
#include <vector>

using namespace murmurly;
using namespace murmurly::testing;
using namespace std::chrono_literals;
using Type = KeyEvent::Type;

namespace {

// Threads of this process whose name is the key reader's (the kernel keeps 15 characters).
int readerThreadCount() {
    int count = 0;
    const QDir tasks(QStringLiteral("/proc/self/task"));
    for (const QString& task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile comm(tasks.filePath(task) + QStringLiteral("/comm"));
        if (comm.open(QIODevice::ReadOnly) && comm.readAll().startsWith("Murmurly.Hotkey")) ++count;
    }
    return count;
}

class X11HotkeyTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(keyboard.isOpen());
        monitor.onPress = [this](Clock::TimePoint) { ++presses; };
        monitor.onRelease = [this](Clock::TimePoint) { ++releases; };
        monitor.onCancel = [this] { ++cancels; };
        ASSERT_TRUE(window.isReady());
        ASSERT_TRUE(monitor.start());
    }

    // Lets queued edges and the window's reports arrive, and checks nothing more comes.
    void settle() { keepRunning(300ms); }

    void bindF5() { monitor.setBinding({HotkeyBinding::Kind::key, KeyCodes::f5, 0, QStringLiteral("F5")}); }

    XTestKeyboard keyboard;
    TextFieldWindowProcess window;
    X11KeyEventSource source;
    SystemClock clock;
    HotkeyMonitor monitor{source, clock};
    int presses = 0;
    int releases = 0;
    int cancels = 0;
};

// Records what the source delivers, with the thread it was delivered on.
class RecordingSink : public KeyEventSink {
public:
    bool keyEvent(Type type, std::uint16_t keyCode, std::uint64_t flags) override {
        std::lock_guard lock(mutex);
        events.emplace_back(type, keyCode, flags);
        threadName = QThread::currentThread()->objectName();
        return false;
    }
    std::size_t count() {
        std::lock_guard lock(mutex);
        return events.size();
    }

    std::mutex mutex;
    std::vector<std::tuple<Type, std::uint16_t, std::uint64_t>> events;
    QString threadName;
};

} // namespace

TEST_F(X11HotkeyTest, RightAltGivesOnePressAndOneReleaseAndBothEventsReachTheWindow) {
    keyboard.press(XK_Alt_R);
    ASSERT_TRUE(waitUntil([&] { return presses == 1; }));
    EXPECT_TRUE(monitor.triggerHeld());
    keyboard.release(XK_Alt_R);
    ASSERT_TRUE(waitUntil([&] { return releases == 1; }));
    settle();
    EXPECT_EQ(presses, 1);
    EXPECT_EQ(releases, 1);
    const QStringList reached = window.keyEventsOf(XK_Alt_R);
    ASSERT_EQ(reached.size(), 2) << reached.join(QLatin1Char(',')).toStdString();
    EXPECT_TRUE(reached[0].startsWith(QStringLiteral("press ffea")));
    EXPECT_TRUE(reached[1].startsWith(QStringLiteral("release ffea")));
}

TEST_F(X11HotkeyTest, LeftAltGivesNothing) {
    keyboard.tap(XK_Alt_L);
    ASSERT_TRUE(waitUntil([&] { return window.keyEventsOf(XK_Alt_L).size() == 2; }));
    settle();
    EXPECT_EQ(presses + releases + cancels, 0);
}

TEST_F(X11HotkeyTest, RightShiftWhileRightAltIsHeldGivesNoFurtherEdge) {
    keyboard.press(XK_Alt_R);
    ASSERT_TRUE(waitUntil([&] { return presses == 1; }));
    keyboard.tap(XK_Shift_R);
    ASSERT_TRUE(waitUntil([&] { return window.keyEventsOf(XK_Shift_R).size() == 2; }));
    settle();
    EXPECT_EQ(presses, 1);
    EXPECT_EQ(releases, 0);
    keyboard.release(XK_Alt_R);
    ASSERT_TRUE(waitUntil([&] { return releases == 1; }));
}

TEST_F(X11HotkeyTest, F5HeldWithAutoRepeatGivesOnePressAndOneReleaseAndNeverReachesTheWindow) {
    // The same hold on an unbound key shows that the server repeats keys held this long.
    keyboard.press(XK_F6);
    keepRunning(1200ms);
    keyboard.release(XK_F6);
    ASSERT_TRUE(waitUntil([&] {
        return window.keyEventsOf(XK_F6).filter(QStringLiteral("press")).size() >= 3;
    })) << window.keyEventsOf(XK_F6).join(QLatin1Char(',')).toStdString();

    bindF5();
    ASSERT_TRUE(waitUntil([&] { return source.grabbedKeyCount() == 1; }));
    keyboard.press(XK_F5);
    keepRunning(1200ms);
    EXPECT_EQ(presses, 1);
    EXPECT_TRUE(monitor.triggerHeld());
    keyboard.release(XK_F5);
    ASSERT_TRUE(waitUntil([&] { return releases == 1; }));
    settle();
    EXPECT_EQ(presses, 1);
    EXPECT_EQ(releases, 1);
    EXPECT_TRUE(window.keyEventsOf(XK_F5).isEmpty())
        << window.keyEventsOf(XK_F5).join(QLatin1Char(',')).toStdString();
}

TEST_F(X11HotkeyTest, EscWhileNotArmedPassesThrough) {
    keyboard.tap(XK_Escape);
    ASSERT_TRUE(waitUntil([&] { return window.keyEventsOf(XK_Escape).size() == 2; }));
    settle();
    EXPECT_EQ(cancels, 0);
    EXPECT_EQ(window.keyEventsOf(XK_Escape),
              (QStringList{QStringLiteral("press ff1b -"), QStringLiteral("release ff1b -")}));
}

TEST_F(X11HotkeyTest, EscWhileArmedIsSwallowedAndGivesOneCancelPerKeyDownWhileItsKeyUpReachesTheWindow) {
    monitor.setCancelArmed(true);
    ASSERT_TRUE(waitUntil([&] { return source.grabbedKeyCount() == 1; }));
    keyboard.tap(XK_Escape);
    ASSERT_TRUE(waitUntil([&] { return cancels == 1; }));
    keyboard.tap(XK_Escape);
    ASSERT_TRUE(waitUntil([&] { return cancels == 2; }));
    // Only the key-downs are kept from the window: both key-ups pass.
    ASSERT_TRUE(waitUntil([&] { return window.keyEventsOf(XK_Escape).size() == 2; }))
        << window.keyEventsOf(XK_Escape).join(QLatin1Char(',')).toStdString();
    settle();
    EXPECT_EQ(cancels, 2);
    EXPECT_EQ(window.keyEventsOf(XK_Escape),
              (QStringList{QStringLiteral("release ff1b -"), QStringLiteral("release ff1b -")}));
    // The keyboard is not left taken: a key typed afterwards reaches the window.
    keyboard.tap(XK_a);
    ASSERT_TRUE(waitUntil([&] { return window.keyEventsOf(XK_a).size() == 2; }));

    // Disarmed, Esc reaches the window again.
    monitor.setCancelArmed(false);
    ASSERT_TRUE(waitUntil([&] { return source.grabbedKeyCount() == 0; }));
    keyboard.tap(XK_Escape);
    ASSERT_TRUE(
        waitUntil([&] { return window.keyEventsOf(XK_Escape).filter(QStringLiteral("press")).size() == 1; }));
    settle();
    EXPECT_EQ(cancels, 2);
}

TEST_F(X11HotkeyTest, KeysTypedWhileF5IsHeldReachTheWindowAndF5DoesNot) {
    bindF5();
    ASSERT_TRUE(waitUntil([&] { return source.grabbedKeyCount() == 1; }));
    keyboard.press(XK_F5);
    ASSERT_TRUE(waitUntil([&] { return presses == 1; }));
    keyboard.tap(XK_a);
    keyboard.press(XK_Shift_L);
    keyboard.tap(XK_b);
    keyboard.release(XK_Shift_L);
    keyboard.tap(XK_c);
    ASSERT_TRUE(window.waitForText(QStringLiteral("aBc"))) << window.text().toStdString();
    EXPECT_TRUE(monitor.triggerHeld());
    keyboard.release(XK_F5);
    ASSERT_TRUE(waitUntil([&] { return releases == 1; }));
    // Typed after the release, to know that everything before it has reached the window.
    keyboard.tap(XK_d);
    ASSERT_TRUE(window.waitForText(QStringLiteral("aBcd"))) << window.text().toStdString();
    settle();
    EXPECT_EQ(presses, 1);
    EXPECT_EQ(releases, 1);
    EXPECT_EQ(window.keyEventsOf(XK_a).size(), 2);
    EXPECT_EQ(window.keyEventsOf(XK_c).size(), 2);
    EXPECT_TRUE(window.keyEventsOf(XK_F5).isEmpty())
        << window.keyEventsOf(XK_F5).join(QLatin1Char(',')).toStdString();
}

TEST_F(X11HotkeyTest, ThePasteChordsOwnKeysGiveNoEdgesWithLeftControlAsTheTrigger) {
    X11OwnKeyEvents ownEvents;
    X11KeyEventSource chordAwareSource({}, &ownEvents);
    HotkeyMonitor chordAwareMonitor{chordAwareSource, clock};
    int edges = 0;
    chordAwareMonitor.onPress = [&](Clock::TimePoint) { ++edges; };
    chordAwareMonitor.onRelease = [&](Clock::TimePoint) { ++edges; };
    chordAwareMonitor.setBinding(*HotkeyBinding::from(
        KeyEvent{KeyEvent::Type::flagsChanged, static_cast<std::uint16_t>(KeyCodes::leftControl),
                 std::nullopt, ModifierFlags::control}));
    ASSERT_EQ(chordAwareMonitor.binding().kind, HotkeyBinding::Kind::modifier);
    ASSERT_TRUE(chordAwareMonitor.start());
    // The fixture's monitor, bound the same way, does not know the chord: it sees it as keys.
    monitor.setBinding(chordAwareMonitor.binding());

    MemoryDefaults defaults;
    XTestPasteKeys pasteKeys(defaults, {}, &ownEvents);
    ASSERT_TRUE(pasteKeys.paste());
    ASSERT_TRUE(waitUntil([&] { return window.keyEventsOf(XK_v).size() == 2; }))
        << window.keyEvents().join(QLatin1Char(',')).toStdString();
    ASSERT_TRUE(waitUntil([&] { return releases == 1; })); // the control key's press and release
    settle();
    EXPECT_EQ(presses, 1);
    EXPECT_EQ(edges, 0);
    EXPECT_TRUE(window.keyEventsOf(XK_v).first().startsWith(QStringLiteral("press 76 C")))
        << window.keyEventsOf(XK_v).join(QLatin1Char(',')).toStdString();

    // The user's own Left Control is still the trigger.
    keyboard.tap(XK_Control_L);
    ASSERT_TRUE(waitUntil([&] { return edges == 2; }));
    settle();
    EXPECT_EQ(edges, 2);
    chordAwareMonitor.stop();
}

TEST_F(X11HotkeyTest, StartingTwiceRunsOneReader) {
    QThread* reader = source.readerThread();
    ASSERT_NE(reader, nullptr);
    ASSERT_TRUE(waitUntil([] { return readerThreadCount() == 1; })); // the thread names itself
    EXPECT_TRUE(monitor.start());
    EXPECT_EQ(source.readerThread(), reader);
    keepRunning(100ms);
    EXPECT_EQ(readerThreadCount(), 1);
    keyboard.tap(XK_Alt_R);
    ASSERT_TRUE(waitUntil([&] { return releases == 1; }));
    settle();
    EXPECT_EQ(presses, 1);
    EXPECT_EQ(releases, 1);
}

TEST_F(X11HotkeyTest, StoppingTwiceIsHarmless) {
    monitor.stop();
    monitor.stop();
    EXPECT_FALSE(monitor.isRunning());
    // The kernel lists a joined thread for a moment longer.
    EXPECT_TRUE(waitUntil([] { return readerThreadCount() == 0; }));
    keyboard.tap(XK_Alt_R);
    ASSERT_TRUE(waitUntil([&] { return window.keyEventsOf(XK_Alt_R).size() == 2; }));
    settle();
    EXPECT_EQ(presses + releases, 0);
}

TEST_F(X11HotkeyTest, StopThenStartClearsTheHeldTrigger) {
    keyboard.press(XK_Alt_R);
    ASSERT_TRUE(waitUntil([&] { return presses == 1; }));
    EXPECT_TRUE(monitor.triggerHeld());
    monitor.stop();
    EXPECT_TRUE(monitor.triggerHeld()); // kept until the next start
    ASSERT_TRUE(monitor.start());
    EXPECT_FALSE(monitor.triggerHeld());
    keyboard.release(XK_Alt_R);
    settle();
    EXPECT_EQ(releases, 0); // no release without a press seen since the start
    keyboard.tap(XK_Alt_R);
    ASSERT_TRUE(waitUntil([&] { return releases == 1; }));
    EXPECT_EQ(presses, 2);
}

TEST_F(X11HotkeyTest, AnUnboundKeyIsNeverGrabbed) {
    EXPECT_EQ(source.grabbedKeyCount(), 0); // a modifier binding swallows nothing
    bindF5();
    ASSERT_TRUE(waitUntil([&] { return source.grabbedKeyCount() == 1; }));
    monitor.setBinding(HotkeyBinding::defaultBinding());
    ASSERT_TRUE(waitUntil([&] { return source.grabbedKeyCount() == 0; }));
    keyboard.tap(XK_F5);
    ASSERT_TRUE(waitUntil([&] { return window.keyEventsOf(XK_F5).size() == 2; }));
}

TEST(X11KeyEventSource, KeysArriveInTheCanonicalSpaceWithModifierFlagsOnTheReaderThread) {
    XTestKeyboard keyboard;
    ASSERT_TRUE(keyboard.isOpen());
    X11KeyEventSource source;
    RecordingSink sink;
    ASSERT_TRUE(source.start(sink));
    keyboard.tap(XK_a);
    keyboard.tap(XK_z);
    keyboard.tap(XK_1);
    keyboard.tap(XK_0);
    keyboard.tap(XK_F1);
    keyboard.tap(XK_F12);
    keyboard.tap(XK_Return);
    keyboard.tap(XK_space);
    keyboard.tap(XK_Tab);
    keyboard.tap(XK_Left);
    keyboard.tap(XK_Up);
    keyboard.press(XK_Shift_L);
    keyboard.tap(XK_v);
    keyboard.release(XK_Shift_L);
    keyboard.press(XK_Control_R);
    keyboard.press(XK_Super_L);
    keyboard.release(XK_Super_L);
    keyboard.release(XK_Control_R);
    ASSERT_TRUE(waitUntil([&] { return sink.count() == 30; })) << sink.count();
    source.stop();

    using E = std::tuple<Type, std::uint16_t, std::uint64_t>;
    std::vector<E> expected;
    for (std::uint16_t code : {0, 6, 18, 29, 122, 111, 36, 49, 48, 123, 126}) {
        expected.emplace_back(Type::keyDown, code, 0);
        expected.emplace_back(Type::keyUp, code, 0);
    }
    const auto shift = ModifierFlags::shift;
    const auto control = ModifierFlags::control;
    const auto super = ModifierFlags::command;
    expected.emplace_back(Type::flagsChanged, 56, shift);
    expected.emplace_back(Type::keyDown, 9, shift);
    expected.emplace_back(Type::keyUp, 9, shift);
    expected.emplace_back(Type::flagsChanged, 56, 0);
    expected.emplace_back(Type::flagsChanged, 62, control);
    expected.emplace_back(Type::flagsChanged, 55, control | super);
    expected.emplace_back(Type::flagsChanged, 55, control);
    expected.emplace_back(Type::flagsChanged, 62, 0);
    EXPECT_EQ(sink.events, expected);
    EXPECT_EQ(sink.threadName, QStringLiteral("Murmurly.HotkeyMonitor"));
}

TEST(X11KeyEventSource, ALostConnectionLeavesItNotRunningAndTheProcessAlive) {
    XvfbServer doomed(XvfbServer::Numbering::keptAfterKill);
    ASSERT_TRUE(doomed.isRunning()) << doomed.error().toStdString();
    X11KeyEventSource source(doomed.displayName());
    RecordingSink sink;
    ASSERT_TRUE(source.start(sink));
    EXPECT_TRUE(source.isRunning());
    doomed.kill();
    EXPECT_TRUE(waitUntil([&] { return !source.isRunning(); }));
    // Starting again fails while there is no server; stopping is harmless.
    EXPECT_FALSE(source.start(sink));
    source.stop();
    EXPECT_FALSE(source.isRunning());
}

TEST(X11KeyEventSource, StartFailsWhenTheDisplayCannotBeOpened) {
    const QByteArray deadDisplay = XvfbServer::unusedDisplayName();
    X11KeyEventSource source(deadDisplay);
    RecordingSink sink;
    EXPECT_FALSE(source.start(sink));
    EXPECT_FALSE(source.isRunning());
    EXPECT_EQ(source.readerThread(), nullptr);
}
