#include "app/SingleInstance.h"

#include <QDBusConnectionInterface>
#include <QDBusReply>

namespace murmurly {

SingleInstance::Role SingleInstance::claim(QDBusConnection bus, const QString& name, QString& error) {
    if (!bus.isConnected() || !bus.interface()) {
        error = bus.lastError().message();
        if (error.isEmpty()) error = QStringLiteral("no D-Bus session bus");
        return Role::alone;
    }
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply = bus.interface()->registerService(
        name, QDBusConnectionInterface::DontQueueService, QDBusConnectionInterface::DontAllowReplacement);
    if (!reply.isValid()) {
        error = reply.error().message();
        return Role::alone;
    }
    return reply.value() == QDBusConnectionInterface::ServiceRegistered ? Role::first : Role::another;
}

} // namespace murmurly
