#pragma once

#include <coroutine>
#include <memory>
#include <utility>
#include <vector>

namespace murmurly {

// The end of one piece of work that any number of coroutines can wait for, before or after it
// happens. Copies share the same completion. Main thread only.
class SharedCompletion {
public:
    bool isDone() const { return m_state->done; }

    // Marks the work done and resumes the waiters, in the order they began waiting.
    void complete() {
        if (m_state->done) return;
        m_state->done = true;
        std::vector<std::coroutine_handle<>> waiters = std::exchange(m_state->waiters, {});
        for (std::coroutine_handle<> waiter : waiters)
            waiter.resume();
    }

    // co_await completion.wait(): resumes once complete() has run (at once if it has).
    auto wait() const {
        struct Awaiter {
            std::shared_ptr<State> state;
            bool await_ready() const noexcept { return state->done; }
            void await_suspend(std::coroutine_handle<> handle) { state->waiters.push_back(handle); }
            void await_resume() const noexcept {}
        };
        return Awaiter{m_state};
    }

private:
    struct State {
        bool done = false;
        std::vector<std::coroutine_handle<>> waiters;
    };
    std::shared_ptr<State> m_state = std::make_shared<State>();
};

} // namespace murmurly
