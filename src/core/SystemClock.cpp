#include "core/SystemClock.h"

#include <QCoroTimer>

namespace murmurly {

Clock::TimePoint SystemClock::now() const {
    return std::chrono::system_clock::now();
}

QCoro::Task<> SystemClock::sleep(std::chrono::milliseconds duration) {
    co_await QCoro::sleepFor(duration);
}

} // namespace murmurly
