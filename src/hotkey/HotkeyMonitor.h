#pragma once

#include "core/Clock.h"
#include "hotkey/EdgeQueue.h"
#include "hotkey/HotkeyBinding.h"
#include "hotkey/HotkeyVerdict.h"
#include "hotkey/KeyEventSource.h"

#include <QObject>

class QAbstractEventDispatcher;

#include <atomic>
#include <deque>
#include <functional>

namespace murmurly {

// Watches the keyboard system-wide for the trigger and reports three edges to the main thread:
// trigger pressed, trigger released, and Esc pressed while a cancel is armed.
//
// The decision runs on the key source's reader thread and never blocks, waits for the main thread
// or allocates: the binding is read through an atomic pointer to an immutable snapshot, and edges
// travel through a fixed lock-free queue, the main thread's event loop being woken to deliver
// them. Callbacks always run on the main thread, never awaited by the reader.
class HotkeyMonitor : public QObject, private KeyEventSink {
    Q_OBJECT

public:
    using Callback = std::function<void()>;
    // Receives when the edge's key event was read, which may be well before the call on a busy
    // main thread.
    using EdgeCallback = std::function<void(Clock::TimePoint at)>;

    // What the reader thread needs of a binding.
    struct Trigger {
        HotkeyBinding::Kind kind = HotkeyBinding::Kind::modifier;
        std::int64_t keyCode = 0;
        std::uint64_t flagMask = 0;
    };

    // `clock` stamps each edge on the reader thread; its now() must be safe to call there.
    HotkeyMonitor(KeyEventSource& source, const Clock& clock, QObject* parent = nullptr);
    ~HotkeyMonitor() override;

    // Set on the main thread; called there, when set, as the edges arrive.
    EdgeCallback onPress;
    EdgeCallback onRelease;
    Callback onCancel;

    const HotkeyBinding& binding() const { return m_binding; }
    void setBinding(const HotkeyBinding& binding);
    bool cancelArmed() const { return m_cancelArmed.load(std::memory_order_relaxed); }
    void setCancelArmed(bool armed);

    // Starts the key source; idempotent. False when the keyboard cannot be watched.
    bool start();
    // Stops the key source; harmless when not running. The trigger state is kept until start().
    void stop();
    // False when stopped, and when the source lost the keyboard (a later start() reconnects).
    bool isRunning() const;
    bool triggerHeld() const { return m_triggerHeld.load(std::memory_order_relaxed); }

    // The whole decision for one event: cancel first (Esc key-down while armed, whatever the
    // binding), then the binding. Modifier bindings pass every event through and report an edge
    // only when the modifier's bit changes on its own key; key bindings swallow every event of
    // their key, press, repeats and release, and report one press and one release.
    static HotkeyVerdict decide(const Trigger& trigger, bool cancelArmed, bool& triggerHeld,
                                KeyEvent::Type type, std::uint16_t keyCode, std::uint64_t flags);

    static Trigger triggerOf(const HotkeyBinding& binding);

private:
    bool keyEvent(KeyEvent::Type type, std::uint16_t keyCode, std::uint64_t flags) override;
    void deliverEdges();
    void publishSwallowedKeys();

    KeyEventSource& m_source;
    const Clock& m_clock;
    HotkeyBinding m_binding;
    // Every trigger ever set stays alive here, so the reader can never hold a freed one; a person
    // records a new trigger a handful of times at most.
    std::deque<Trigger> m_triggers;
    std::atomic<const Trigger*> m_trigger{nullptr};
    std::atomic<bool> m_cancelArmed{false};
    std::atomic<bool> m_triggerHeld{false};
    bool m_started = false;
    EdgeQueue m_edges;
    QAbstractEventDispatcher* m_dispatcher = nullptr; // the main thread's; woken from the reader
};

} // namespace murmurly
