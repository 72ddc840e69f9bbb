#include "ManualClock.h"

#include <QDateTime>

namespace murmurly::testing {

ManualClock::ManualClock(TimePoint start)
    : m_now(start) {
}

Clock::TimePoint ManualClock::defaultStart() {
    return TimePoint(
        std::chrono::seconds(QDateTime(QDate(2026, 1, 1), QTime(0, 0), Qt::UTC).toSecsSinceEpoch()));
}

QCoro::Task<> ManualClock::sleep(std::chrono::milliseconds duration) {
    co_await Awaiter{this, m_now + duration};
}

void ManualClock::advance(std::chrono::milliseconds by) {
    advanceTo(m_now + by);
}

void ManualClock::advanceTo(TimePoint time) {
    while (!m_sleepers.empty() && m_sleepers.begin()->first.first <= time) {
        const auto it = m_sleepers.begin();
        const std::coroutine_handle<> handle = it->second;
        if (it->first.first > m_now) m_now = it->first.first;
        m_sleepers.erase(it);
        handle.resume();
    }
    if (time > m_now) m_now = time;
}

} // namespace murmurly::testing
