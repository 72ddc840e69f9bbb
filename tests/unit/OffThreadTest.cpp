#include "core/OffThread.h"
#include "RunTask.h"

#include <gtest/gtest.h>

#include <latch>
#include <memory>
#include <thread>

using namespace murmurly;
using namespace std::chrono_literals;
using murmurly::testing::runBounded;

TEST(OffThread, WorkThatReturnsGivesItsResultFromAnotherThread) {
    const std::thread::id caller = std::this_thread::get_id();
    auto outcome = runBounded(
        OffThread::resultWithin<bool>([caller] { return std::this_thread::get_id() != caller; }, 30s), 60s);
    ASSERT_TRUE(outcome.finished);
    ASSERT_TRUE(outcome.value->has_value());
    EXPECT_TRUE(**outcome.value);
}

TEST(OffThread, WorkThatDoesNotReturnInTimeIsGivenUpWithoutWaitingForIt) {
    // The work cannot end before the test lets it, after the wait: a caller that waited for it
    // would never get here, and giving up is the only possible outcome.
    auto release = std::make_shared<std::latch>(1);
    auto ended = std::make_shared<std::latch>(1);
    auto outcome = runBounded(OffThread::resultWithin<int>(
                                  [release, ended] {
                                      release->wait();
                                      ended->count_down();
                                      return 7;
                                  },
                                  300ms),
                              60s);
    ASSERT_TRUE(outcome.finished);
    EXPECT_EQ(*outcome.value, std::nullopt);
    release->count_down();
    ended->wait(); // the abandoned work still ends, and nothing is left waiting for it
}
