#include "app/PortalShortcutSession.h"

#include "app/PortalShortcutEntry.h"
#include "core/Log.h"

#include <QDBusArgument>
#include <QDBusInterface>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QTimer>
#include <QUuid>

namespace murmurly {

namespace {

const QString requestInterface = QStringLiteral("org.freedesktop.portal.Request");
const QString sessionInterface = QStringLiteral("org.freedesktop.portal.Session");

// How long the portal may take to create a session; a bind may wait for the user much longer.
constexpr int createLimitMilliseconds = PortalShortcutSession::callLimitMilliseconds;
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
    if (!bus.isConnected()) return false;
    QDBusMessage get = QDBusMessage::createMethodCall(
        service, path, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get << interface << QStringLiteral("version");
    const QDBusMessage reply = bus.call(get, QDBus::Block, callLimitMilliseconds);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return false;
    return reply.arguments().constFirst().value<QDBusVariant>().variant().toUInt() >= 1;
}

PortalShortcutSession::PortalShortcutSession(QDBusConnection bus, QList<Shortcut> shortcuts, QObject* parent)
    : QObject(parent)
    , m_bus(std::move(bus))
    , m_shortcuts(std::move(shortcuts))
    , m_token(QStringLiteral("murmurly_") + QUuid::createUuid().toString(QUuid::Id128)) {
    registerTypes();
    // The portal going away takes every session with it.
    auto* watcher = new QDBusServiceWatcher(service, m_bus, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            &PortalShortcutSession::portalOwnerChanged);
    for (const char* name : {"Activated", "Deactivated", "ShortcutsChanged"})
        m_bus.connect(service, path, interface, QLatin1String(name), this, SLOT(portalSignal(QDBusMessage)));

    const QString request = requestPath(m_token + QStringLiteral("_create"));
    if (!subscribeResponse(request, SLOT(createResponse(QDBusMessage)))) {
        // Told on the next turn, so the owner has connected to the signal by then.
        QTimer::singleShot(0, this, [this] { refuse(QStringLiteral("The session bus cannot be watched.")); });
        return;
    }
    m_pendingRequest = request;
    QDBusMessage call =
        QDBusMessage::createMethodCall(service, path, interface, QStringLiteral("CreateSession"));
    call << QVariantMap{{QStringLiteral("handle_token"), m_token + QStringLiteral("_create")},
                        {QStringLiteral("session_handle_token"), m_token}};
    auto* pending = new QDBusPendingCallWatcher(m_bus.asyncCall(call, callLimitMilliseconds), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* finished) {
        finished->deleteLater();
        if (finished->isError() && m_state == State::opening)
            refuse(QStringLiteral("The desktop's shortcuts portal did not answer: ") +
                   finished->error().message());
    });
    QTimer::singleShot(createLimitMilliseconds, this, [this] {
        if (m_state == State::opening && m_sessionHandle.isEmpty())
            refuse(QStringLiteral("The desktop's shortcuts portal did not create a session in time."));
    });
}

PortalShortcutSession::~PortalShortcutSession() {
    close();
}

void PortalShortcutSession::close() {
    if (!m_sessionHandle.isEmpty() && m_state != State::closed && m_state != State::refused) {
        m_bus.asyncCall(QDBusMessage::createMethodCall(service, m_sessionHandle, sessionInterface,
                                                       QStringLiteral("Close")),
                        callLimitMilliseconds);
    }
    m_state = State::closed;
}

std::optional<QString> PortalShortcutSession::triggerDescription(const QString& id) const {
    for (const Bound& shortcut : m_bound)
        if (shortcut.id == id) return shortcut.triggerDescription;
    return std::nullopt;
}

QString PortalShortcutSession::requestPath(const QString& token) const {
    // The portal names each request after the caller's unique name and the token it chose.
    QString sender = m_bus.baseService();
    sender.remove(0, sender.startsWith(QLatin1Char(':')) ? 1 : 0);
    sender.replace(QLatin1Char('.'), QLatin1Char('_'));
    return path + QStringLiteral("/request/") + sender + QLatin1Char('/') + token;
}

bool PortalShortcutSession::subscribeResponse(const QString& requestPath, const char* slot) {
    return m_bus.connect(service, requestPath, requestInterface, QStringLiteral("Response"), this, slot);
}

void PortalShortcutSession::createResponse(const QDBusMessage& message) {
    if (message.path() != m_pendingRequest || m_state != State::opening) return;
    m_bus.disconnect(service, m_pendingRequest, requestInterface, QStringLiteral("Response"), this,
                     SLOT(createResponse(QDBusMessage)));
    const QList<QVariant> arguments = message.arguments();
    const uint response = arguments.value(0).toUInt();
    const QVariantMap results = qdbus_cast<QVariantMap>(arguments.value(1));
    if (response != 0 || !results.contains(QStringLiteral("session_handle"))) {
        refuse(QStringLiteral("The desktop did not open a shortcuts session."));
        return;
    }
    // Sent as a string by the portal for historical reasons; an object path is accepted too.
    const QVariant handle = results.value(QStringLiteral("session_handle"));
    m_sessionHandle =
        handle.canConvert<QDBusObjectPath>() && handle.userType() == qMetaTypeId<QDBusObjectPath>()
            ? handle.value<QDBusObjectPath>().path()
            : handle.toString();
    m_bus.connect(service, m_sessionHandle, sessionInterface, QStringLiteral("Closed"), this,
                  SLOT(sessionClosed(QDBusMessage)));
    bind();
}

void PortalShortcutSession::bind() {
    const QString token = m_token + QStringLiteral("_bind");
    const QString request = requestPath(token);
    if (!subscribeResponse(request, SLOT(bindResponse(QDBusMessage)))) {
        refuse(QStringLiteral("The session bus cannot be watched."));
        return;
    }
    m_pendingRequest = request;
    QList<PortalShortcutEntry> entries;
    for (const Shortcut& shortcut : m_shortcuts) {
        QVariantMap properties{{QStringLiteral("description"), shortcut.description}};
        if (!shortcut.preferredTrigger.isEmpty())
            properties.insert(QStringLiteral("preferred_trigger"), shortcut.preferredTrigger);
        entries.append({shortcut.id, properties});
    }
    QDBusMessage call =
        QDBusMessage::createMethodCall(service, path, interface, QStringLiteral("BindShortcuts"));
    call << QVariant::fromValue(QDBusObjectPath(m_sessionHandle)) << QVariant::fromValue(entries) << QString()
         << QVariantMap{{QStringLiteral("handle_token"), token}};
    auto* pending = new QDBusPendingCallWatcher(m_bus.asyncCall(call, callLimitMilliseconds), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* finished) {
        finished->deleteLater();
        if (finished->isError() && m_state == State::opening)
            refuse(QStringLiteral("The desktop's shortcuts portal refused the bind: ") +
                   finished->error().message());
    });
    QTimer::singleShot(bindLimitMilliseconds, this, [this] {
        if (m_state == State::opening)
            refuse(QStringLiteral("The desktop did not bind the shortcut in time."));
    });
}

void PortalShortcutSession::bindResponse(const QDBusMessage& message) {
    if (message.path() != m_pendingRequest || m_state != State::opening) return;
    m_bus.disconnect(service, m_pendingRequest, requestInterface, QStringLiteral("Response"), this,
                     SLOT(bindResponse(QDBusMessage)));
    const QList<QVariant> arguments = message.arguments();
    const uint response = arguments.value(0).toUInt();
    if (response != 0) {
        refuse(responseReason(response));
        return;
    }
    readShortcuts(qdbus_cast<QVariantMap>(arguments.value(1)).value(QStringLiteral("shortcuts")));
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
    const QVariant session = arguments.constFirst();
    const QString sessionPath = session.userType() == qMetaTypeId<QDBusObjectPath>()
                                    ? session.value<QDBusObjectPath>().path()
                                    : session.toString();
    if (sessionPath != m_sessionHandle) return;
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
        m_bus.asyncCall(QDBusMessage::createMethodCall(service, m_sessionHandle, sessionInterface,
                                                       QStringLiteral("Close")),
                        callLimitMilliseconds);
    m_state = state;
    m_reason = reason;
    qCWarning(lcApp, "Shortcuts portal: %s", qUtf8Printable(reason));
    emit stateChanged();
}

} // namespace murmurly
