#pragma once

#include "core/Clock.h"

#include <QHash>

#include <coroutine>
#include <cstdint>

class QTimer;

namespace murmurly {

// Wall-clock time and Qt-timer sleeps on the calling thread's event loop.
//
// A sleep still pending when the clock goes away is resumed then, so the task it belongs to can
// see that its owner is gone and end, instead of staying suspended for ever (the permission poll
// sleeps for the whole life of the program). Sleeps begun after that never resume.
class SystemClock final : public Clock {
public:
    SystemClock() = default;
    ~SystemClock() override;
    SystemClock(const SystemClock&) = delete;
    SystemClock& operator=(const SystemClock&) = delete;

    TimePoint now() const override;
    QCoro::Task<> sleep(std::chrono::milliseconds duration) override;

    std::size_t pendingSleeps() const { return static_cast<std::size_t>(m_sleepers.size()); }

private:
    struct Sleeper {
        std::coroutine_handle<> handle;
        QTimer* timer = nullptr;
    };
    struct Awaiter {
        SystemClock* clock;
        std::chrono::milliseconds duration;
        bool await_ready() const noexcept { return duration.count() <= 0; }
        void await_suspend(std::coroutine_handle<> handle);
        void await_resume() const noexcept {}
    };

    void wake(std::uint64_t id);

    QHash<std::uint64_t, Sleeper> m_sleepers;
    std::uint64_t m_nextId = 0;
    bool m_closing = false;
};

} // namespace murmurly
