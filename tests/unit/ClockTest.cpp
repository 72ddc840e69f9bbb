#include "ManualClock.h"
#include "core/SystemClock.h"

#include <QCoreApplication>
#include <QCoroTask>
#include <QElapsedTimer>
#include <QList>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

using namespace murmurly;
using namespace std::chrono_literals;
using murmurly::testing::ManualClock;

namespace {

QCoro::Task<> sleepThenNote(Clock& clock, std::chrono::milliseconds duration, std::vector<int>& log,
                            int tag) {
    co_await clock.sleep(duration);
    log.push_back(tag);
}

// A coroutine's parameters live in its frame; a capturing lambda's captures would not outlive
// the expression that started it.
QCoro::Task<> sleepThenReadTheTime(Clock& clock, std::chrono::milliseconds duration, Clock::TimePoint& seen) {
    co_await clock.sleep(duration);
    seen = clock.now();
}

QCoro::Task<> watchdog(Clock& clock, int& ticks, int limit) {
    while (ticks < limit) {
        co_await clock.sleep(300ms);
        ++ticks;
    }
}

} // namespace

TEST(ManualClock, SleepsResumeOnlyWhenTimeIsAdvanced) {
    ManualClock clock;
    std::vector<int> log;
    auto task = sleepThenNote(clock, 100ms, log, 1);
    EXPECT_TRUE(log.empty());
    clock.advance(99ms);
    EXPECT_TRUE(log.empty());
    clock.advance(1ms);
    EXPECT_EQ(log, std::vector<int>{1});
    EXPECT_TRUE(task.isReady());
}

TEST(ManualClock, SleepsResumeInDeadlineOrderAndTiesInStartOrder) {
    ManualClock clock;
    std::vector<int> log;
    auto a = sleepThenNote(clock, 300ms, log, 3);
    auto b = sleepThenNote(clock, 100ms, log, 1);
    auto c = sleepThenNote(clock, 100ms, log, 2);
    clock.advance(1s);
    EXPECT_EQ(log, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(clock.pendingSleeps(), 0u);
}

TEST(ManualClock, NowReadsTheDeadlineOfTheSleeperBeingResumed) {
    ManualClock clock;
    const auto start = clock.now();
    Clock::TimePoint seen;
    auto task = sleepThenReadTheTime(clock, 250ms, seen);
    clock.advance(10s);
    EXPECT_EQ(seen - start, 250ms);
    EXPECT_EQ(clock.now() - start, 10s);
}

TEST(ManualClock, FiveMinutesOfWatchdogTicksRunInVirtualTime) {
    ManualClock clock;
    int ticks = 0;
    QElapsedTimer wall;
    wall.start();
    auto task = watchdog(clock, ticks, 1000);
    clock.advance(300s);
    EXPECT_EQ(ticks, 1000);
    EXPECT_LT(wall.elapsed(), 2000);
}

TEST(SystemClock, SleepWaitsOnTheEventLoop) {
    SystemClock clock;
    QElapsedTimer wall;
    wall.start();
    QCoro::waitFor(clock.sleep(30ms));
    EXPECT_GE(wall.elapsed(), 25);
    EXPECT_LT(wall.elapsed(), 5000);
}

TEST(SystemClock, PendingSleepsAreResumedWhenTheClockGoesAwaySoTheirTasksCanEnd) {
    auto clock = std::make_unique<SystemClock>();
    auto alive = std::make_shared<bool>(true);
    auto ended = std::make_shared<bool>(false);
    // A task that sleeps for an hour and checks on waking whether its owner is still there.
    [](Clock& c, std::shared_ptr<bool> owner, std::shared_ptr<bool> done) -> QCoro::Task<> {
        co_await c.sleep(std::chrono::hours(1));
        if (!*owner) *done = true;
    }(*clock, alive, ended);
    EXPECT_EQ(clock->pendingSleeps(), 1u);
    EXPECT_FALSE(*ended);
    *alive = false;
    clock.reset();
    EXPECT_TRUE(*ended);
}

TEST(SystemClock, SleepsOfTheSameLengthResumeInTheOrderTheyBegan) {
    SystemClock clock;
    QList<int> order;
    auto sleeper = [](Clock& c, QList<int>& out, int n) -> QCoro::Task<> {
        co_await c.sleep(20ms);
        out << n;
    };
    sleeper(clock, order, 1);
    sleeper(clock, order, 2);
    QElapsedTimer wall;
    wall.start();
    while (order.size() < 2 && wall.elapsed() < 5000)
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 20);
    EXPECT_EQ(order, (QList<int>{1, 2}));
    EXPECT_EQ(clock.pendingSleeps(), 0u);
}
