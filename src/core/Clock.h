#pragma once

#include <QCoro/QCoroTask>

#include <chrono>

namespace murmurly {

// The one source of time for the core. Production code runs on a QTimer-based clock; tests use a
// manual clock whose sleeps resume only when the test advances virtual time.
class Clock {
public:
    using TimePoint = std::chrono::system_clock::time_point;

    virtual ~Clock() = default;

    virtual TimePoint now() const = 0;

    // Resumes the awaiting coroutine on the main thread after `duration` has passed.
    virtual QCoro::Task<> sleep(std::chrono::milliseconds duration) = 0;
};

} // namespace murmurly
