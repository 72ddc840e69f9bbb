#include "app/PortalKeyEventSource.h"

#include "app/HostPortalRegistration.h"
#include "core/Log.h"
#include "hotkey/KeyCodes.h"

namespace murmurly {

PortalKeyEventSource::PortalKeyEventSource(QDBusConnection bus, HostPortalRegistration* registration,
                                           QObject* parent)
    : QObject(parent)
    , m_bus(std::move(bus))
    , m_registration(registration) {
}

PortalKeyEventSource::~PortalKeyEventSource() {
    // Nothing the sessions tell while they close on the portal reaches this half-destroyed object.
    if (m_session) m_session->disconnect(this);
    if (m_cancelSession) m_cancelSession->disconnect(this);
}

bool PortalKeyEventSource::isRefused() const {
    return m_session && m_session->state() == PortalShortcutSession::State::refused;
}

bool PortalKeyEventSource::start(KeyEventSink& sink) {
    m_sink = &sink;
    if (isRefused()) return false;
    if (!isRunning()) openSession();
    return true;
}

void PortalKeyEventSource::stop() {
    m_sink = nullptr;
    m_triggerDown = false;
}

bool PortalKeyEventSource::isRunning() const {
    if (!m_session) return false;
    const PortalShortcutSession::State state = m_session->state();
    return state == PortalShortcutSession::State::opening || state == PortalShortcutSession::State::bound;
}

QString PortalKeyEventSource::preferredTrigger(const HotkeyBinding& binding) {
    if (binding.kind != HotkeyBinding::Kind::key) return {};
    if (HotkeyBinding::functionKeys().contains(binding.keyCode)) return binding.displayName;
    // A typeable key is named by its character; the notation's key names are lower case.
    if (binding.displayName == QLatin1String(" ")) return QStringLiteral("space");
    if (binding.displayName.size() == 1 && binding.displayName.at(0).isLetterOrNumber())
        return binding.displayName.toLower();
    return {};
}

QString PortalKeyEventSource::requestedTrigger() const {
    const QString own = preferredTrigger(m_binding);
    return own.isEmpty() ? proposedTrigger : own;
}

// Sessions may end from within one of their own signals: they are deleted once it returns.
void PortalKeyEventSource::discard(std::unique_ptr<PortalShortcutSession>& session) {
    if (!session) return;
    session->disconnect(this);
    session->close();
    // Kept as a child until then, so that it goes with this object if no event loop runs again.
    session->setParent(this);
    session.release()->deleteLater();
}

void PortalKeyEventSource::openSession() {
    pressTrigger(false);
    discard(m_session);
    if (m_registration) m_registration->ensure();
    m_session = std::make_unique<PortalShortcutSession>(
        m_bus,
        QList<PortalShortcutSession::Shortcut>{{dictateId, QStringLiteral("Dictate"), requestedTrigger()}});
    PortalShortcutSession* session = m_session.get();
    connect(session, &PortalShortcutSession::stateChanged, this, &PortalKeyEventSource::sessionStateChanged);
    connect(session, &PortalShortcutSession::shortcutsChanged, this, &PortalKeyEventSource::notifyAssignment);
    connect(session, &PortalShortcutSession::activated, this, &PortalKeyEventSource::activated);
    connect(session, &PortalShortcutSession::deactivated, this, &PortalKeyEventSource::deactivated);
    emit changed();
}

void PortalKeyEventSource::sessionStateChanged() {
    switch (m_session->state()) {
    case PortalShortcutSession::State::opening:
        break;
    case PortalShortcutSession::State::bound:
        qCInfo(lcApp, "Trigger bound through the shortcuts portal: %s",
               qUtf8Printable(assignedTrigger().value_or(QStringLiteral("no key yet"))));
        break;
    case PortalShortcutSession::State::refused:
        break;
    case PortalShortcutSession::State::closed:
        // Whatever was held can no longer be released by the desktop: it counts as released.
        pressTrigger(false);
        break;
    }
    notifyAssignment();
    emit changed();
}

std::optional<QString> PortalKeyEventSource::assignedTrigger() const {
    if (!m_session || m_session->state() != PortalShortcutSession::State::bound) return std::nullopt;
    const std::optional<QString> description = m_session->triggerDescription(dictateId);
    if (!description || description->isEmpty()) return std::nullopt;
    return description;
}

void PortalKeyEventSource::notifyAssignment() {
    const std::optional<QString> now = assignedTrigger();
    if (now == m_lastAssigned) return;
    m_lastAssigned = now;
    if (m_observer) m_observer();
    emit changed();
}

void PortalKeyEventSource::retry() {
    discard(m_cancelSession);
    openSession();
}

void PortalKeyEventSource::setBinding(const HotkeyBinding& binding) {
    if (binding == m_binding) return;
    const QString before = requestedTrigger();
    m_binding = binding;
    // The portal binds once per session: a different key is asked for in a new one. A key chosen
    // after a refusal asks the desktop again.
    if (m_session && (requestedTrigger() != before || isRefused())) retry();
    emit changed();
}

QString PortalKeyEventSource::note() const {
    if (isRefused())
        return problem() +
               QStringLiteral(" Choose the trigger again with \"Change…\" to ask the desktop again.");
    if (!preferredTrigger(m_binding).isEmpty()) return {};
    if (m_binding.kind == HotkeyBinding::Kind::modifier)
        return QStringLiteral(
                   "Desktop shortcuts cannot be a modifier key alone, so Murmurly asked the desktop "
                   "for %1 instead of %2.")
            .arg(proposedTrigger, m_binding.displayName);
    return QStringLiteral("Desktop shortcuts cannot name %1, so Murmurly asked the desktop for %2 instead.")
        .arg(m_binding.displayName, proposedTrigger);
}

void PortalKeyEventSource::setSwallowedKeys(const SwallowedKeys& keys) {
    if (keys.escape && !m_cancelSession) {
        m_cancelSession = std::make_unique<PortalShortcutSession>(
            m_bus, QList<PortalShortcutSession::Shortcut>{
                       {cancelId, QStringLiteral("Cancel the dictation"), QStringLiteral("Escape")}});
        connect(m_cancelSession.get(), &PortalShortcutSession::activated, this,
                &PortalKeyEventSource::activated);
    } else if (!keys.escape) {
        discard(m_cancelSession);
    }
}

void PortalKeyEventSource::activated(const QString& id) {
    if (id == dictateId) {
        pressTrigger(true);
    } else if (id == cancelId) {
        deliver(KeyEvent::Type::keyDown, KeyCodes::escape, 0);
        deliver(KeyEvent::Type::keyUp, KeyCodes::escape, 0);
    }
}

void PortalKeyEventSource::deactivated(const QString& id) {
    if (id == dictateId) pressTrigger(false);
}

void PortalKeyEventSource::pressTrigger(bool down) {
    if (down == m_triggerDown) return;
    m_triggerDown = down;
    // The chosen binding's own events, so the monitor's decision is the one every source gets.
    if (m_binding.kind == HotkeyBinding::Kind::modifier)
        deliver(KeyEvent::Type::flagsChanged, m_binding.keyCode, down ? m_binding.flagMask : 0);
    else
        deliver(down ? KeyEvent::Type::keyDown : KeyEvent::Type::keyUp, m_binding.keyCode, 0);
}

void PortalKeyEventSource::deliver(KeyEvent::Type type, std::int64_t keyCode, std::uint64_t flags) {
    if (m_sink && keyCode >= 0 && keyCode <= 0xFFFF)
        m_sink->keyEvent(type, static_cast<std::uint16_t>(keyCode), flags);
}

} // namespace murmurly
