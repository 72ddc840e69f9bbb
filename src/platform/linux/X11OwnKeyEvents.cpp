#include "platform/linux/X11OwnKeyEvents.h"

namespace murmurly {

void X11OwnKeyEvents::announce(const Event* events, std::size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + lifetime;
    std::lock_guard lock(m_mutex);
    for (std::size_t i = 0; i < count && m_count < capacity; ++i) {
        m_ring[(m_first + m_count) % capacity] = {events[i], deadline};
        ++m_count;
    }
}

bool X11OwnKeyEvents::take(unsigned char xKeyCode, bool pressed) {
    const auto now = std::chrono::steady_clock::now();
    std::lock_guard lock(m_mutex);
    while (m_count > 0 && m_ring[m_first].deadline < now) {
        m_first = (m_first + 1) % capacity;
        --m_count;
    }
    if (m_count == 0) return false;
    const Event& next = m_ring[m_first].event;
    if (next.xKeyCode != xKeyCode || next.pressed != pressed) return false;
    m_first = (m_first + 1) % capacity;
    --m_count;
    return true;
}

} // namespace murmurly
