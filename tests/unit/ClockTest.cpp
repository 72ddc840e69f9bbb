#include "ManualClock.h"
#include "core/SystemClock.h"

#include <QCoroTask>
#include <QElapsedTimer>

#include <gtest/gtest.h>

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
