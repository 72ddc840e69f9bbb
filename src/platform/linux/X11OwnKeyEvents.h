#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <mutex>

namespace murmurly {

// The key events this program itself is about to make with XTest (the paste chord), announced by
// the one who makes them and recognised by the key reader as they come back from the server, so
// that they are never taken for the user's keys: with Left Control as the trigger, the chord's
// own Control would otherwise read as a trigger press.
//
// Events are matched in the order they were announced. An announced event that never arrives is
// forgotten after a while, so it cannot swallow a later real one. Thread-safe; no allocation.
class X11OwnKeyEvents {
public:
    struct Event {
        unsigned char xKeyCode = 0;
        bool pressed = false;
    };

    // Called before the events are sent. Events beyond the capacity are not announced.
    void announce(const Event* events, std::size_t count);
    // Called by the reader for each key event: true when it is the next announced one (and it is
    // then taken off the list).
    bool take(unsigned char xKeyCode, bool pressed);

    static constexpr std::size_t capacity = 64;
    // How long an announced event waits for its return.
    static constexpr std::chrono::seconds lifetime{3};

private:
    struct Expected {
        Event event;
        std::chrono::steady_clock::time_point deadline;
    };

    std::mutex m_mutex;
    std::array<Expected, capacity> m_ring{};
    std::size_t m_first = 0;
    std::size_t m_count = 0;
};

} // namespace murmurly
