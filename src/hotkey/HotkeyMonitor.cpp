#include "hotkey/HotkeyMonitor.h"

#include "hotkey/KeyCodes.h"

#include <QAbstractEventDispatcher>
#include <QThread>

namespace murmurly {

HotkeyMonitor::HotkeyMonitor(KeyEventSource& source, const Clock& clock, QObject* parent)
    : QObject(parent)
    , m_source(source)
    , m_clock(clock)
    , m_binding(HotkeyBinding::defaultBinding()) {
    m_triggers.push_back(triggerOf(m_binding));
    m_trigger.store(&m_triggers.back(), std::memory_order_release);
    // Edges are delivered whenever the event loop wakes, which the reader asks for after each push.
    m_dispatcher = QAbstractEventDispatcher::instance(thread());
    if (m_dispatcher) {
        connect(m_dispatcher, &QAbstractEventDispatcher::awake, this, &HotkeyMonitor::deliverEdges);
        connect(m_dispatcher, &QAbstractEventDispatcher::aboutToBlock, this, &HotkeyMonitor::deliverEdges);
    }
}

HotkeyMonitor::~HotkeyMonitor() {
    stop();
}

HotkeyMonitor::Trigger HotkeyMonitor::triggerOf(const HotkeyBinding& binding) {
    return {binding.kind, binding.keyCode, binding.flagMask};
}

void HotkeyMonitor::setBinding(const HotkeyBinding& binding) {
    m_binding = binding;
    m_triggers.push_back(triggerOf(binding));
    m_trigger.store(&m_triggers.back(), std::memory_order_release);
    m_source.setBinding(binding);
    publishSwallowedKeys();
}

void HotkeyMonitor::setCancelArmed(bool armed) {
    if (m_cancelArmed.exchange(armed, std::memory_order_relaxed) != armed) publishSwallowedKeys();
}

void HotkeyMonitor::publishSwallowedKeys() {
    SwallowedKeys keys;
    if (m_binding.kind == HotkeyBinding::Kind::key && m_binding.keyCode >= 0 && m_binding.keyCode <= 0xFFFF)
        keys.boundKey = static_cast<std::uint16_t>(m_binding.keyCode);
    keys.escape = cancelArmed();
    m_source.setSwallowedKeys(keys);
}

bool HotkeyMonitor::start() {
    if (m_started && m_source.isRunning()) return true;
    if (m_started) m_source.stop(); // the source lost the keyboard: start afresh
    m_triggerHeld.store(false, std::memory_order_relaxed);
    publishSwallowedKeys();
    m_started = m_source.start(*this);
    return m_started;
}

void HotkeyMonitor::stop() {
    if (!m_started) return;
    m_source.stop();
    m_started = false;
}

bool HotkeyMonitor::isRunning() const {
    return m_started && m_source.isRunning();
}

HotkeyVerdict HotkeyMonitor::decide(const Trigger& trigger, bool cancelArmed, bool& triggerHeld,
                                    KeyEvent::Type type, std::uint16_t keyCode, std::uint64_t flags) {
    if (cancelArmed && type == KeyEvent::Type::keyDown && keyCode == KeyCodes::escape)
        return {true, HotkeyEdge::cancel};

    if (keyCode != trigger.keyCode) return {false, HotkeyEdge::none};

    if (trigger.kind == HotkeyBinding::Kind::modifier) {
        if (type != KeyEvent::Type::flagsChanged) return {false, HotkeyEdge::none};
        const bool pressed = (flags & trigger.flagMask) == trigger.flagMask;
        if (pressed == triggerHeld) return {false, HotkeyEdge::none};
        triggerHeld = pressed;
        return {false, pressed ? HotkeyEdge::press : HotkeyEdge::release};
    }

    switch (type) {
    case KeyEvent::Type::keyDown:
        if (triggerHeld) return {true, HotkeyEdge::none}; // auto-repeat
        triggerHeld = true;
        return {true, HotkeyEdge::press};
    case KeyEvent::Type::keyUp:
        if (!triggerHeld) return {true, HotkeyEdge::none};
        triggerHeld = false;
        return {true, HotkeyEdge::release};
    case KeyEvent::Type::flagsChanged:
    case KeyEvent::Type::other:
        break;
    }
    return {true, HotkeyEdge::none};
}

bool HotkeyMonitor::keyEvent(KeyEvent::Type type, std::uint16_t keyCode, std::uint64_t flags) {
    bool held = m_triggerHeld.load(std::memory_order_relaxed);
    const HotkeyVerdict verdict =
        decide(*m_trigger.load(std::memory_order_acquire), m_cancelArmed.load(std::memory_order_relaxed),
               held, type, keyCode, flags);
    m_triggerHeld.store(held, std::memory_order_relaxed);
    if (verdict.edge != HotkeyEdge::none && m_edges.push({verdict.edge, m_clock.now()}) && m_dispatcher)
        m_dispatcher->wakeUp();
    return verdict.swallow;
}

void HotkeyMonitor::deliverEdges() {
    while (const std::optional<TimedEdge> edge = m_edges.pop()) {
        // Read the callback now, on the main thread: it may have been replaced since the event.
        switch (edge->edge) {
        case HotkeyEdge::press:
            if (onPress) onPress(edge->at);
            break;
        case HotkeyEdge::release:
            if (onRelease) onRelease(edge->at);
            break;
        case HotkeyEdge::cancel:
            if (onCancel) onCancel();
            break;
        case HotkeyEdge::none:
            break;
        }
    }
}

} // namespace murmurly
