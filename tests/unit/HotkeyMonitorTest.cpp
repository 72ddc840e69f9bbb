#include "hotkey/HotkeyMonitor.h"
#include "FakeKeyEventSource.h"
#include "ManualClock.h"
#include "hotkey/KeyCodes.h"

#include <QCoreApplication>
#include <QTest>
#include <QThread>

#include <gtest/gtest.h>

using namespace murmurly;
using murmurly::testing::FakeKeyEventSource;
using Type = KeyEvent::Type;

namespace {

constexpr std::uint16_t rightOption = 61;
constexpr std::uint16_t leftOption = 58;
constexpr std::uint16_t rightShift = 60;
constexpr std::uint16_t f5 = 96;
constexpr std::uint16_t esc = 53;

class HotkeyMonitorTest : public ::testing::Test {
protected:
    void SetUp() override {
        monitor.onPress = [this](Clock::TimePoint at) {
            ++presses;
            edgeTimes.push_back(at);
        };
        monitor.onRelease = [this](Clock::TimePoint at) {
            ++releases;
            edgeTimes.push_back(at);
        };
        monitor.onCancel = [this] { ++cancels; };
        ASSERT_TRUE(monitor.start());
    }

    // Lets the main thread's event loop deliver what the reader pushed.
    void deliver() { QCoreApplication::processEvents(); }

    void bindF5() { monitor.setBinding({HotkeyBinding::Kind::key, f5, 0, QStringLiteral("F5")}); }

    FakeKeyEventSource source;
    murmurly::testing::ManualClock clock;
    HotkeyMonitor monitor{source, clock};
    std::vector<Clock::TimePoint> edgeTimes;
    int presses = 0;
    int releases = 0;
    int cancels = 0;
};

} // namespace

TEST_F(HotkeyMonitorTest, StartsWithTheRightOptionDefault) {
    EXPECT_EQ(monitor.binding(), HotkeyBinding::defaultBinding());
    EXPECT_FALSE(monitor.cancelArmed());
    EXPECT_FALSE(monitor.triggerHeld());
}

TEST_F(HotkeyMonitorTest, RightOptionGivesOnePressAndOneReleaseAndBothEventsPassThrough) {
    EXPECT_FALSE(source.send(Type::flagsChanged, rightOption, ModifierFlags::option));
    deliver();
    EXPECT_EQ(presses, 1);
    EXPECT_TRUE(monitor.triggerHeld());
    EXPECT_FALSE(source.send(Type::flagsChanged, rightOption, 0));
    deliver();
    EXPECT_EQ(presses, 1);
    EXPECT_EQ(releases, 1);
    EXPECT_FALSE(monitor.triggerHeld());
}

TEST_F(HotkeyMonitorTest, LeftOptionWithARightOptionBindingGivesNothing) {
    EXPECT_FALSE(source.send(Type::flagsChanged, leftOption, ModifierFlags::option));
    EXPECT_FALSE(source.send(Type::flagsChanged, leftOption, 0));
    deliver();
    EXPECT_EQ(presses + releases, 0);
}

TEST_F(HotkeyMonitorTest, RightShiftWhileRightOptionIsHeldGivesNoFurtherEdge) {
    source.send(Type::flagsChanged, rightOption, ModifierFlags::option);
    EXPECT_FALSE(source.send(Type::flagsChanged, rightShift, ModifierFlags::option | ModifierFlags::shift));
    EXPECT_FALSE(source.send(Type::flagsChanged, rightShift, ModifierFlags::option));
    deliver();
    EXPECT_EQ(presses, 1);
    EXPECT_EQ(releases, 0);
}

TEST_F(HotkeyMonitorTest, RepeatedModifierStateGivesNoSecondEdge) {
    source.send(Type::flagsChanged, rightOption, ModifierFlags::option);
    source.send(Type::flagsChanged, rightOption, ModifierFlags::option | ModifierFlags::shift);
    source.send(Type::flagsChanged, rightOption, 0);
    source.send(Type::flagsChanged, rightOption, 0);
    deliver();
    EXPECT_EQ(presses, 1);
    EXPECT_EQ(releases, 1);
}

TEST_F(HotkeyMonitorTest, ModifierKeyDownAndKeyUpEventsAreIgnored) {
    EXPECT_FALSE(source.send(Type::keyDown, rightOption, ModifierFlags::option));
    EXPECT_FALSE(source.send(Type::keyUp, rightOption, 0));
    deliver();
    EXPECT_EQ(presses + releases, 0);
}

TEST_F(HotkeyMonitorTest, HeldF5GivesOnePressDespiteAutoRepeatAndEveryEventIsSwallowed) {
    bindF5();
    EXPECT_EQ(source.swallowed.boundKey, f5);
    for (int i = 0; i < 20; ++i)
        EXPECT_TRUE(source.send(Type::keyDown, f5));
    EXPECT_TRUE(source.send(Type::keyUp, f5));
    deliver();
    EXPECT_EQ(presses, 1);
    EXPECT_EQ(releases, 1);
}

TEST_F(HotkeyMonitorTest, KeyUpOfTheBoundKeyWithoutAPressIsSwallowedSilently) {
    bindF5();
    EXPECT_TRUE(source.send(Type::keyUp, f5));
    deliver();
    EXPECT_EQ(releases, 0);
}

TEST_F(HotkeyMonitorTest, FlagsChangedOnTheBoundKeyIsSwallowedWithoutAnEdge) {
    bindF5();
    EXPECT_TRUE(source.send(Type::flagsChanged, f5, ModifierFlags::function));
    deliver();
    EXPECT_EQ(presses + releases, 0);
}

TEST_F(HotkeyMonitorTest, OtherKeysPassThroughWithAKeyBinding) {
    bindF5();
    EXPECT_FALSE(source.send(Type::keyDown, 97));
    EXPECT_FALSE(source.send(Type::keyUp, 97));
    deliver();
    EXPECT_EQ(presses + releases, 0);
}

TEST_F(HotkeyMonitorTest, ModifierBindingsAreNeverGrabbed) {
    EXPECT_FALSE(source.swallowed.boundKey);
    bindF5();
    EXPECT_EQ(source.swallowed.boundKey, f5);
    monitor.setBinding(HotkeyBinding::defaultBinding());
    EXPECT_FALSE(source.swallowed.boundKey);
}

TEST_F(HotkeyMonitorTest, EscWhileNotArmedPassesThrough) {
    EXPECT_FALSE(source.send(Type::keyDown, esc));
    EXPECT_FALSE(source.send(Type::keyUp, esc));
    deliver();
    EXPECT_EQ(cancels, 0);
    EXPECT_FALSE(source.swallowed.escape);
}

TEST_F(HotkeyMonitorTest, EscWhileArmedIsSwallowedWithOneCancelPerKeyDownAndItsKeyUpPasses) {
    monitor.setCancelArmed(true);
    EXPECT_TRUE(source.swallowed.escape);
    EXPECT_TRUE(source.send(Type::keyDown, esc));
    EXPECT_FALSE(source.send(Type::keyUp, esc));
    EXPECT_TRUE(source.send(Type::keyDown, esc));
    deliver();
    EXPECT_EQ(cancels, 2);
    EXPECT_TRUE(monitor.cancelArmed()); // the monitor never disarms itself
    monitor.setCancelArmed(false);
    EXPECT_FALSE(source.swallowed.escape);
}

TEST_F(HotkeyMonitorTest, ArmedEscIsACancelEvenWhenEscIsTheBinding) {
    monitor.setBinding({HotkeyBinding::Kind::key, esc, 0, QStringLiteral("Key 53")});
    monitor.setCancelArmed(true);
    EXPECT_TRUE(source.send(Type::keyDown, esc));
    deliver();
    EXPECT_EQ(cancels, 1);
    EXPECT_EQ(presses, 0);
}

TEST_F(HotkeyMonitorTest, StartTwiceInstallsOneReader) {
    EXPECT_TRUE(monitor.start());
    EXPECT_EQ(source.starts, 1);
    EXPECT_TRUE(monitor.isRunning());
}

TEST_F(HotkeyMonitorTest, StopTwiceIsHarmless) {
    monitor.stop();
    monitor.stop();
    EXPECT_EQ(source.stops, 1);
    EXPECT_FALSE(monitor.isRunning());
}

TEST_F(HotkeyMonitorTest, StopThenStartClearsTheHeldTrigger) {
    source.send(Type::flagsChanged, rightOption, ModifierFlags::option);
    monitor.stop();
    EXPECT_TRUE(monitor.triggerHeld()); // kept until the next start
    EXPECT_TRUE(monitor.start());
    EXPECT_FALSE(monitor.triggerHeld());
    EXPECT_EQ(source.starts, 2);
}

TEST_F(HotkeyMonitorTest, FailedStartLeavesTheMonitorStopped) {
    FakeKeyEventSource unavailable;
    unavailable.available = false;
    HotkeyMonitor other(unavailable, clock);
    EXPECT_FALSE(other.start());
    EXPECT_FALSE(other.isRunning());
}

TEST_F(HotkeyMonitorTest, LostKeyboardReportsNotRunningAndStartReconnects) {
    source.running = false; // the display went away
    EXPECT_FALSE(monitor.isRunning());
    EXPECT_TRUE(monitor.start());
    EXPECT_EQ(source.starts, 2);
    EXPECT_TRUE(monitor.isRunning());
}

TEST_F(HotkeyMonitorTest, MissingCallbacksAreSimplyNotCalled) {
    monitor.onPress = nullptr;
    source.send(Type::flagsChanged, rightOption, ModifierFlags::option);
    source.send(Type::flagsChanged, rightOption, 0);
    deliver();
    EXPECT_EQ(releases, 1);
}

TEST_F(HotkeyMonitorTest, CallbacksRunOnTheMainThreadForEventsReadElsewhere) {
    QThread* ranOn = nullptr;
    monitor.onPress = [&](Clock::TimePoint) { ranOn = QThread::currentThread(); };
    source.sendFromOtherThread(Type::flagsChanged, rightOption, ModifierFlags::option);
    EXPECT_TRUE(QTest::qWaitFor([&] { return ranOn != nullptr; }, 2000));
    EXPECT_EQ(ranOn, QCoreApplication::instance()->thread());
}

TEST_F(HotkeyMonitorTest, ReaderNeverWaitsForTheMainThread) {
    // Thousands of edges pushed while the main thread is not running its loop: the reader returns
    // at once every time, and every edge arrives once the loop runs.
    for (int i = 0; i < 100; ++i) {
        source.sendFromOtherThread(Type::flagsChanged, rightOption, ModifierFlags::option);
        source.sendFromOtherThread(Type::flagsChanged, rightOption, 0);
    }
    EXPECT_TRUE(QTest::qWaitFor([&] { return releases == 100; }, 2000));
    EXPECT_EQ(presses, 100);
}

TEST_F(HotkeyMonitorTest, EdgesCarryTheTimeTheirKeyEventsWereReadNotWhenTheyAreDelivered) {
    const Clock::TimePoint start = clock.now();
    source.send(Type::flagsChanged, rightOption, ModifierFlags::option);
    clock.advance(std::chrono::milliseconds(40));
    source.send(Type::flagsChanged, rightOption, 0);
    clock.advance(std::chrono::seconds(2)); // the main thread was busy
    deliver();
    ASSERT_EQ(edgeTimes.size(), 2u);
    EXPECT_EQ(edgeTimes[0], start);
    EXPECT_EQ(edgeTimes[1], start + std::chrono::milliseconds(40));
}

TEST(HotkeyDecision, IsAPureFunctionOfStateAndEvent) {
    const HotkeyMonitor::Trigger option = HotkeyMonitor::triggerOf(HotkeyBinding::defaultBinding());
    bool held = false;
    EXPECT_EQ(
        HotkeyMonitor::decide(option, false, held, Type::flagsChanged, rightOption, ModifierFlags::option),
        (HotkeyVerdict{false, HotkeyEdge::press}));
    EXPECT_TRUE(held);
    EXPECT_EQ(
        HotkeyMonitor::decide(option, false, held, Type::flagsChanged, rightOption, ModifierFlags::option),
        (HotkeyVerdict{false, HotkeyEdge::none}));
    EXPECT_EQ(HotkeyMonitor::decide(option, true, held, Type::keyDown, esc, 0),
              (HotkeyVerdict{true, HotkeyEdge::cancel}));
    EXPECT_TRUE(held); // a cancel does not touch the trigger
}

TEST(EdgeQueue, DropsAndCountsWhenFullAndKeepsOrder) {
    const auto at = [](std::size_t ms) { return Clock::TimePoint{} + std::chrono::milliseconds(ms); };
    EdgeQueue queue;
    for (std::size_t i = 0; i + 1 < EdgeQueue::capacity; ++i)
        ASSERT_TRUE(queue.push({i % 2 ? HotkeyEdge::release : HotkeyEdge::press, at(i)}));
    EXPECT_FALSE(queue.push({HotkeyEdge::cancel, at(999)}));
    EXPECT_EQ(queue.dropped(), 1u);
    std::optional<TimedEdge> first = queue.pop();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->edge, HotkeyEdge::press);
    EXPECT_EQ(first->at, at(0));
    std::optional<TimedEdge> second = queue.pop();
    ASSERT_TRUE(second);
    EXPECT_EQ(second->edge, HotkeyEdge::release);
    EXPECT_EQ(second->at, at(1));
    EXPECT_TRUE(queue.push({HotkeyEdge::cancel, at(1000)}));
}
