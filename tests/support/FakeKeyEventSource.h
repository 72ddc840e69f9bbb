#pragma once

#include "hotkey/KeyEventSource.h"

#include <functional>
#include <optional>
#include <thread>

namespace murmurly::testing {

// A keyboard driven by the test: send() delivers one event to the sink as the reader thread would,
// on the calling thread or (sendFromOtherThread) on a thread of its own.
class FakeKeyEventSource final : public KeyEventSource {
public:
    bool start(KeyEventSink& sink) override {
        ++starts;
        if (!available) return false;
        m_sink = &sink;
        running = true;
        return true;
    }
    void stop() override {
        ++stops;
        running = false;
        m_sink = nullptr;
    }
    bool isRunning() const override { return running; }
    void setSwallowedKeys(const SwallowedKeys& keys) override { swallowed = keys; }
    std::optional<QString> assignedTrigger() const override { return assigned; }
    void setAssignmentObserver(std::function<void()> observer) override { m_observer = std::move(observer); }

    // As a desktop that assigns the trigger's key itself, and says so.
    void assign(const QString& trigger) {
        assigned = trigger;
        if (m_observer) m_observer();
    }

    // The answer of the sink: whether the event was swallowed. Events sent while stopped reach no
    // one and pass through.
    bool send(KeyEvent::Type type, std::uint16_t keyCode, std::uint64_t flags = 0) {
        return m_sink ? m_sink->keyEvent(type, keyCode, flags) : false;
    }
    bool sendFromOtherThread(KeyEvent::Type type, std::uint16_t keyCode, std::uint64_t flags = 0) {
        bool swallowed = false;
        std::thread reader([&] { swallowed = send(type, keyCode, flags); });
        reader.join();
        return swallowed;
    }

    bool available = true;
    bool running = false;
    int starts = 0;
    int stops = 0;
    SwallowedKeys swallowed;
    std::optional<QString> assigned;

private:
    KeyEventSink* m_sink = nullptr;
    std::function<void()> m_observer;
};

} // namespace murmurly::testing
