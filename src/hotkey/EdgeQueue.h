#pragma once

#include "core/Clock.h"
#include "hotkey/HotkeyVerdict.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <optional>

namespace murmurly {

// One trigger edge and when its key event was read.
struct TimedEdge {
    HotkeyEdge edge = HotkeyEdge::none;
    Clock::TimePoint at{};
};

// Single-producer, single-consumer ring of trigger edges: the key reader pushes, the main thread
// pops. Fixed size, lock-free, never allocates. An edge pushed onto a full ring is dropped and
// counted; with a person at the keyboard it never fills.
class EdgeQueue {
public:
    static constexpr std::size_t capacity = 256;

    bool push(TimedEdge edge) {
        const std::size_t head = m_head.load(std::memory_order_relaxed);
        const std::size_t next = (head + 1) % capacity;
        if (next == m_tail.load(std::memory_order_acquire)) {
            m_dropped.fetch_add(1, std::memory_order_relaxed);
            return false;
        }
        m_slots[head] = edge;
        m_head.store(next, std::memory_order_release);
        return true;
    }

    std::optional<TimedEdge> pop() {
        const std::size_t tail = m_tail.load(std::memory_order_relaxed);
        if (tail == m_head.load(std::memory_order_acquire)) return std::nullopt;
        const TimedEdge edge = m_slots[tail];
        m_tail.store((tail + 1) % capacity, std::memory_order_release);
        return edge;
    }

    std::size_t dropped() const { return m_dropped.load(std::memory_order_relaxed); }

private:
    std::array<TimedEdge, capacity> m_slots{};
    std::atomic<std::size_t> m_head{0};
    std::atomic<std::size_t> m_tail{0};
    std::atomic<std::size_t> m_dropped{0};
};

} // namespace murmurly
