#include "core/SystemClock.h"

#include <QTimer>

namespace murmurly {

SystemClock::~SystemClock() {
    m_closing = true;
    const QHash<std::uint64_t, Sleeper> sleepers = std::exchange(m_sleepers, {});
    for (const Sleeper& sleeper : sleepers) {
        delete sleeper.timer;
        sleeper.handle.resume();
    }
}

Clock::TimePoint SystemClock::now() const {
    return std::chrono::system_clock::now();
}

QCoro::Task<> SystemClock::sleep(std::chrono::milliseconds duration) {
    co_await Awaiter{this, duration};
}

void SystemClock::Awaiter::await_suspend(std::coroutine_handle<> handle) {
    if (clock->m_closing) return; // the program is ending: never resumed
    const std::uint64_t id = ++clock->m_nextId;
    auto* timer = new QTimer;
    timer->setSingleShot(true);
    timer->setTimerType(Qt::PreciseTimer);
    SystemClock* owner = clock;
    QObject::connect(timer, &QTimer::timeout, timer, [owner, id] { owner->wake(id); });
    clock->m_sleepers.insert(id, {handle, timer});
    timer->start(duration);
}

void SystemClock::wake(std::uint64_t id) {
    const auto it = m_sleepers.find(id);
    if (it == m_sleepers.end()) return;
    const Sleeper sleeper = *it;
    m_sleepers.erase(it);
    sleeper.timer->deleteLater();
    sleeper.handle.resume();
}

} // namespace murmurly
