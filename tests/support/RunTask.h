#pragma once

#include "WaitUntil.h"

#include <QCoreApplication>
#include <QCoro/QCoroTask>
#include <QElapsedTimer>

#include <chrono>
#include <memory>
#include <optional>

namespace murmurly::testing {

// The outcome of a task run on the event loop for at most a given time: `finished` false means
// it was still running when the time ran out (the test then fails instead of hanging).
template <typename T> struct Bounded {
    bool finished = false;
    std::optional<T> value;
};

template <typename T>
Bounded<T> runBounded(QCoro::Task<T> task, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    struct State {
        bool finished = false;
        std::optional<T> value;
    };
    auto state = std::make_shared<State>();
    // The runner keeps the state alive even if the limit passes while it is suspended.
    auto runner = [](QCoro::Task<T> inner, std::shared_ptr<State> out) -> QCoro::Task<> {
        out->value.emplace(co_await std::move(inner));
        out->finished = true;
    }(std::move(task), state);
    QElapsedTimer timer;
    timer.start();
    while (!state->finished && timer.elapsed() < limit.count())
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 20);
    return {state->finished, state->finished ? std::move(state->value) : std::nullopt};
}

} // namespace murmurly::testing
