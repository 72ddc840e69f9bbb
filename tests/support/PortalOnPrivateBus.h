#pragma once

#include "PrivateDesktopPortal.h"
#include "PrivateSessionBus.h"

#include <QDBusConnection>
#include <QString>

#include <optional>

namespace murmurly::testing {

// What the tests of a portal client start from: a private session bus, the desktop portal on it
// (the real frontend with the stand-in desktop side) and a connection of the test's own to that
// bus, dropped when the object goes.
class PortalOnPrivateBus {
public:
    explicit PortalOnPrivateBus(const QString& connectionName);
    ~PortalOnPrivateBus();
    PortalOnPrivateBus(const PortalOnPrivateBus&) = delete;
    PortalOnPrivateBus& operator=(const PortalOnPrivateBus&) = delete;

    // Why it cannot be used; empty when everything runs.
    QString error() const;

    PrivateDesktopPortal& portal() { return *m_portal; }
    QDBusConnection& connection() { return *m_connection; }

private:
    QString m_connectionName;
    PrivateSessionBus m_bus;
    std::optional<PrivateDesktopPortal> m_portal;
    std::optional<QDBusConnection> m_connection;
};

} // namespace murmurly::testing
