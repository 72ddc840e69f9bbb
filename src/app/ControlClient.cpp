#include "app/ControlClient.h"

#include "app/DBusControl.h"

#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusMessage>
#include <QDeadlineTimer>
#include <QThread>

#include <cstdio>

namespace murmurly {

ControlClient::Result ControlClient::call(const QString& method, QDBusConnection bus) {
    if (!bus.isConnected() || !bus.interface()) return {Outcome::notRunning, {}};
    if (!bus.interface()->isServiceRegistered(DBusControl::serviceName).value())
        return {Outcome::notRunning, {}};

    const QDBusMessage message = QDBusMessage::createMethodCall(
        DBusControl::serviceName, DBusControl::objectPath, DBusControl::interfaceName, method);
    const QDeadlineTimer grace(startUpGrace);
    for (;;) {
        const QDBusMessage reply = bus.call(message, QDBus::Block, int(callTimeout.count()));
        if (reply.type() == QDBusMessage::ReplyMessage) return {Outcome::delivered, {}};
        const QDBusError::ErrorType type = QDBusError(reply).type();
        // It quit between the look-up and the call.
        if (type == QDBusError::ServiceUnknown ||
            reply.errorName() == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner"))
            return {Outcome::notRunning, {}};
        const bool starting = type == QDBusError::UnknownObject || type == QDBusError::UnknownInterface ||
                              type == QDBusError::UnknownMethod;
        if (!starting || grace.hasExpired())
            return {Outcome::failed,
                    reply.errorMessage().isEmpty() ? reply.errorName() : reply.errorMessage()};
        QThread::msleep(50);
    }
}

int ControlClient::runOption(const QString& method) {
    const Result result = call(method);
    switch (result.outcome) {
    case Outcome::delivered:
        return exitDelivered;
    case Outcome::notRunning:
        std::fputs("Murmurly is not running.\n", stderr);
        return exitNotRunning;
    case Outcome::failed:
        break;
    }
    std::fprintf(stderr, "murmurly: the running Murmurly did not take the call: %s\n",
                 result.error.toUtf8().constData());
    return exitNotRunning;
}

} // namespace murmurly
