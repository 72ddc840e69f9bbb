#pragma once

#include <QDBusConnection>
#include <QList>
#include <QString>

class QDBusVirtualObject;

namespace murmurly::testing {

// How the tests' stand-in D-Bus services run: on the session bus of their environment, their
// objects put on the bus before their name is owned (once the name shows, everything answers),
// until SIGTERM ends the event loop. Made in main(), after the QCoreApplication.
class StandInBusService {
public:
    using Log = void (*)(const QString& line);
    struct Object {
        QString path;
        QDBusConnection::VirtualObjectRegisterOption option;
    };

    explicit StandInBusService(Log log);

    // The session bus; when it is not connected, that has been logged.
    QDBusConnection bus() const { return m_bus; }
    bool isConnected() const { return m_bus.isConnected(); }

    // Serves `object` at `objects`' paths as `service` until SIGTERM; the exit status for main().
    int serve(QDBusVirtualObject& object, const QList<Object>& objects, const QString& service);

private:
    Log m_log;
    QDBusConnection m_bus;
};

} // namespace murmurly::testing
