#pragma once

#include "core/Clock.h"

#include <coroutine>
#include <cstdint>
#include <map>
#include <utility>

namespace murmurly::testing {

// Virtual time for tests: sleeps resume only inside advance(), in deadline order (ties in the
// order they began), with now() reading each sleeper's deadline as it resumes. A five-minute
// timeout takes microseconds.
class ManualClock final : public Clock {
public:
    explicit ManualClock(TimePoint start = defaultStart());

    // 2026-01-01 00:00:00 UTC: a fixed, recognisable start.
    static TimePoint defaultStart();

    TimePoint now() const override { return m_now; }
    QCoro::Task<> sleep(std::chrono::milliseconds duration) override;

    // Moves time forward by `by`, resuming every sleep that falls due on the way.
    void advance(std::chrono::milliseconds by);
    // Moves time to `time` (never backwards), resuming what falls due.
    void advanceTo(TimePoint time);

    std::size_t pendingSleeps() const { return m_sleepers.size(); }

private:
    struct Awaiter {
        ManualClock* clock;
        TimePoint deadline;
        bool await_ready() const noexcept { return deadline <= clock->m_now; }
        void await_suspend(std::coroutine_handle<> handle) {
            clock->m_sleepers.emplace(std::make_pair(deadline, clock->m_sequence++), handle);
        }
        void await_resume() const noexcept {}
    };

    TimePoint m_now;
    std::uint64_t m_sequence = 0;
    std::multimap<std::pair<TimePoint, std::uint64_t>, std::coroutine_handle<>> m_sleepers;
};

} // namespace murmurly::testing
