#pragma once

#include <QCoro/QCoroSignal>
#include <QCoro/QCoroTask>
#include <QFutureWatcher>
#include <QPromise>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

namespace murmurly::OffThread {

// Runs `work` on a thread of its own and waits for it on the calling thread's event loop, at
// most `limit`: absent when it has not returned by then. Work that overruns is not stopped (a
// blocking call cannot be); it ends on its thread whenever it does, and its result is dropped.
// The thread is detached, so such work must own or outlive everything it touches, and holds up
// neither the caller nor the program's exit.
template <typename T>
QCoro::Task<std::optional<T>> resultWithin(std::function<T()> work, std::chrono::milliseconds limit) {
    QPromise<T> promise;
    QFuture<T> future = promise.future();
    std::thread([promise = std::move(promise), work = std::move(work)]() mutable {
        promise.start();
        promise.addResult(work());
        promise.finish();
    }).detach();

    // Its signals arrive through the event loop, also for work that ended before it watched.
    auto watcher = std::make_unique<QFutureWatcher<T>>();
    watcher->setFuture(future);
    if (!future.isFinished()) {
        const auto ended = co_await qCoro(watcher.get(), &QFutureWatcher<T>::finished, limit);
        if (!ended) co_return std::nullopt;
    }
    if (future.resultCount() == 0) co_return std::nullopt;
    co_return future.result();
}

} // namespace murmurly::OffThread
