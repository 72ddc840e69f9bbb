#include "app/HostPortalRegistration.h"

#include "app/PortalRequest.h"
#include "core/Log.h"

#include <QDBusMessage>
#include <QStringList>
#include <QVariantMap>

#include <utility>

namespace murmurly {

namespace {

// How a bus or a portal without the registry answers: nothing to register with.
const QStringList absentErrors{
    QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod"),
    QStringLiteral("org.freedesktop.DBus.Error.UnknownInterface"),
    QStringLiteral("org.freedesktop.DBus.Error.UnknownObject"),
    QStringLiteral("org.freedesktop.DBus.Error.ServiceUnknown"),
    QStringLiteral("org.freedesktop.DBus.Error.NameHasNoOwner"),
};

} // namespace

HostPortalRegistration::HostPortalRegistration(QDBusConnection bus, QString appId)
    : m_bus(std::move(bus))
    , m_appId(std::move(appId)) {
}

QString HostPortalRegistration::portalOwner() const {
    QDBusMessage ask = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetNameOwner"));
    ask << PortalRequest::service;
    const QDBusMessage reply = m_bus.call(ask, QDBus::Block, limitMilliseconds);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return {};
    return reply.arguments().constFirst().toString();
}

HostPortalRegistration::Outcome HostPortalRegistration::ensure() {
    if (!m_bus.isConnected()) return m_outcome;
    // The bus itself tells which portal process runs, without a call the portal would count.
    const QString owner = portalOwner();
    if (m_outcome != Outcome::notAsked && owner == m_askedOwner) return m_outcome;

    QDBusMessage registration = QDBusMessage::createMethodCall(PortalRequest::service, PortalRequest::path,
                                                               interface, QStringLiteral("Register"));
    registration << m_appId << QVariantMap();
    const QDBusMessage reply = m_bus.call(registration, QDBus::Block, limitMilliseconds);
    // A portal that is started on demand runs only now.
    m_askedOwner = owner.isEmpty() ? portalOwner() : owner;
    if (reply.type() == QDBusMessage::ReplyMessage) {
        m_outcome = Outcome::registered;
        qCInfo(lcApp, "Known to the desktop portal as %s", qUtf8Printable(m_appId));
    } else if (absentErrors.contains(reply.errorName())) {
        m_outcome = Outcome::absent;
        qCInfo(lcApp, "The desktop portal keeps no application ids; it knows Murmurly by its process");
    } else {
        m_outcome = Outcome::failed;
        qCWarning(lcApp, "The desktop portal did not take the application id %s: %s", qUtf8Printable(m_appId),
                  qUtf8Printable(reply.errorMessage()));
    }
    return m_outcome;
}

} // namespace murmurly
