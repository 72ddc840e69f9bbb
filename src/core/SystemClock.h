#pragma once

#include "core/Clock.h"

namespace murmurly {

// Wall-clock time and Qt-timer sleeps on the calling thread's event loop.
class SystemClock final : public Clock {
public:
    TimePoint now() const override;
    QCoro::Task<> sleep(std::chrono::milliseconds duration) override;
};

} // namespace murmurly
