#include "app/PortalShortcutSession.h"

#include "app/PortalRequest.h"
#include "app/PortalShortcutEntry.h"
#include "core/Log.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusServiceWatcher>
#include <QUuid>

namespace murmurly {

namespace {

// A bind may wait for the user much longer than a call.
constexpr int bindLimitMilliseconds = 120'000;

void registerTypes() {
    static const bool registered = [] {
        qDBusRegisterMetaType<PortalShortcutEntry>();
        qDBusRegisterMetaType<QList<PortalShortcutEntry>>();
        return true;
    }();
    Q_UNUSED(registered);
}

QString responseReason(uint response) {
    switch (response) {
    case 1:
        return QStringLiteral("The shortcut was dismissed on the desktop.");
    default:
        return QStringLiteral("The desktop refused the shortcut.");
    }
}

} // namespace

bool PortalShortcutSession::isOffered(QDBusConnection bus) {
    return PortalRequest::property(std::move(bus), interface, QStringLiteral("version"))
               .value_or(0)
               .toUInt() >= 1;
}

PortalShortcutSession::PortalShortcutSession(QDBusConnection bus, QList<Shortcut> shortcuts, QObject* parent)
    : QObject(parent)
    , m_bus(std::move(bus))
    , m_shortcuts(std::move(shortcuts)) {
    registerTypes();
    // The portal going away takes every session with it.
    auto* watcher = new QDBusServiceWatcher(PortalRequest::service, m_bus,
                                            QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            &PortalShortcutSession::portalOwnerChanged);
    for (const char* name : {"Activated", "Deactivated", "ShortcutsChanged"})
        m_bus.connect(PortalRequest::service, PortalRequest::path, interface, QLatin1String(name), this,
                      SLOT(portalSignal(QDBusMessage)));

    PortalRequest::call(
        m_bus, interface, QStringLiteral("CreateSession"),
        {QVariantMap{{QStringLiteral("session_handle_token"),
                      QStringLiteral("murmurly_") + QUuid::createUuid().toString(QUuid::Id128)}}},
        this,
        [this](uint response, const QVariantMap& results, const QString& error) {
            created(response, results, error);
        },
        PortalRequest::callLimitMilliseconds);
}

PortalShortcutSession::~PortalShortcutSession() {
    close();
}

void PortalShortcutSession::close() {
    if (!m_sessionHandle.isEmpty() && m_state != State::closed && m_state != State::refused)
        PortalRequest::closeSession(m_bus, m_sessionHandle);
    m_state = State::closed;
}

std::optional<QString> PortalShortcutSession::triggerDescription(const QString& id) const {
    for (const Bound& shortcut : m_bound)
        if (shortcut.id == id) return shortcut.triggerDescription;
    return std::nullopt;
}

void PortalShortcutSession::created(uint response, const QVariantMap& results, const QString& error) {
    // Sent as a string by the portal for historical reasons; an object path is accepted too.
    const QString sessionHandle = PortalRequest::objectPath(results.value(QStringLiteral("session_handle")));
    if (m_state != State::opening) {
        // Closed while the desktop made it: it is closed on the desktop's side too.
        if (response == 0 && !sessionHandle.isEmpty()) PortalRequest::closeSession(m_bus, sessionHandle);
        return;
    }
    if (response != 0 || sessionHandle.isEmpty()) {
        refuse(error.isEmpty() ? QStringLiteral("The desktop did not open a shortcuts session.")
                               : QStringLiteral("The desktop's shortcuts portal did not answer: ") + error);
        return;
    }
    m_sessionHandle = sessionHandle;
    m_bus.connect(PortalRequest::service, m_sessionHandle, PortalRequest::sessionInterface,
                  QStringLiteral("Closed"), this, SLOT(sessionClosed(QDBusMessage)));
    bind();
}

void PortalShortcutSession::bind() {
    QList<PortalShortcutEntry> entries;
    for (const Shortcut& shortcut : m_shortcuts) {
        QVariantMap properties{{QStringLiteral("description"), shortcut.description}};
        if (!shortcut.preferredTrigger.isEmpty())
            properties.insert(QStringLiteral("preferred_trigger"), shortcut.preferredTrigger);
        entries.append({shortcut.id, properties});
    }
    PortalRequest::call(
        m_bus, interface, QStringLiteral("BindShortcuts"),
        {QVariant::fromValue(QDBusObjectPath(m_sessionHandle)), QVariant::fromValue(entries), QString(),
         QVariantMap()},
        this,
        [this](uint response, const QVariantMap& results, const QString& error) {
            bound(response, results, error);
        },
        bindLimitMilliseconds);
}

void PortalShortcutSession::bound(uint response, const QVariantMap& results, const QString& error) {
    if (m_state != State::opening) return;
    if (response != 0) {
        refuse(response == 1 || error.isEmpty()
                   ? responseReason(response)
                   : QStringLiteral("The desktop's shortcuts portal refused the bind: ") + error);
        return;
    }
    readShortcuts(results.value(QStringLiteral("shortcuts")));
    m_state = State::bound;
    emit stateChanged();
}

void PortalShortcutSession::readShortcuts(const QVariant& list) {
    m_bound.clear();
    if (!list.canConvert<QDBusArgument>()) return;
    for (const PortalShortcutEntry& entry :
         qdbus_cast<QList<PortalShortcutEntry>>(list.value<QDBusArgument>()))
        m_bound.append({entry.id, entry.properties.value(QStringLiteral("trigger_description")).toString()});
}

void PortalShortcutSession::portalSignal(const QDBusMessage& message) {
    const QList<QVariant> arguments = message.arguments();
    if (arguments.isEmpty() || m_sessionHandle.isEmpty()) return;
    if (PortalRequest::objectPath(arguments.constFirst()) != m_sessionHandle) return;
    if (message.member() == QLatin1String("ShortcutsChanged")) {
        readShortcuts(arguments.value(1));
        emit shortcutsChanged();
        return;
    }
    // The desktop signals only bound shortcuts, possibly before its answer to the bind is read.
    if (m_state == State::refused || m_state == State::closed) return;
    const QString id = arguments.value(1).toString();
    if (message.member() == QLatin1String("Activated"))
        emit activated(id);
    else if (message.member() == QLatin1String("Deactivated"))
        emit deactivated(id);
}

void PortalShortcutSession::sessionClosed(const QDBusMessage& message) {
    if (message.path() != m_sessionHandle) return;
    end(State::closed, QStringLiteral("The desktop closed the shortcuts session."));
}

void PortalShortcutSession::portalOwnerChanged(const QString&, const QString&, const QString&) {
    if (m_state == State::refused || m_state == State::closed) return;
    end(State::closed, QStringLiteral("The desktop's shortcuts portal went away."));
}

void PortalShortcutSession::refuse(const QString& reason) {
    end(State::refused, reason);
}

void PortalShortcutSession::end(State state, const QString& reason) {
    if (m_state == State::refused || m_state == State::closed) return;
    // A session whose bind was refused is of no further use; the portal is told so.
    if (state == State::refused && !m_sessionHandle.isEmpty())
        PortalRequest::closeSession(m_bus, m_sessionHandle);
    m_state = state;
    m_reason = reason;
    qCWarning(lcApp, "Shortcuts portal: %s", qUtf8Printable(reason));
    emit stateChanged();
}

} // namespace murmurly
