#include "PortalOnPrivateBus.h"

namespace murmurly::testing {

PortalOnPrivateBus::PortalOnPrivateBus(const QString& connectionName)
    : m_connectionName(connectionName) {
    if (!m_bus.isRunning()) return;
    m_portal.emplace(m_bus.address());
    if (!m_portal->isRunning()) return;
    m_connection.emplace(QDBusConnection::connectToBus(m_bus.address(), m_connectionName));
}

PortalOnPrivateBus::~PortalOnPrivateBus() {
    m_connection.reset();
    QDBusConnection::disconnectFromBus(m_connectionName);
}

QString PortalOnPrivateBus::error() const {
    if (!m_bus.isRunning()) return m_bus.error();
    if (!m_portal->isRunning()) return m_portal->error();
    if (!m_connection->isConnected()) return QStringLiteral("cannot connect to the private bus");
    return {};
}

} // namespace murmurly::testing
