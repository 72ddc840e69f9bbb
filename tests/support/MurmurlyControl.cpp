#include "MurmurlyControl.h"

#include "WaitUntil.h"

#include <QDBusMessage>
#include <QDBusVariant>

namespace murmurly::testing {

MurmurlyControl::MurmurlyControl(const QString& busAddress, const QString& connectionName)
    : m_name(connectionName)
    , m_connection(QDBusConnection::connectToBus(busAddress, connectionName)) {
}

MurmurlyControl::~MurmurlyControl() {
    m_connection = QDBusConnection(QString());
    QDBusConnection::disconnectFromBus(m_name);
}

std::optional<QString> MurmurlyControl::property(const QString& name) {
    QDBusMessage get = QDBusMessage::createMethodCall(
        service, path, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get << interface << name;
    const QDBusMessage reply = m_connection.call(get, QDBus::Block, 10000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return std::nullopt;
    return reply.arguments().constFirst().value<QDBusVariant>().variant().toString();
}

bool MurmurlyControl::waitForProperty(const QString& name, const QString& value,
                                      std::chrono::milliseconds limit) {
    return waitUntil([&] { return property(name) == value; }, limit);
}

bool MurmurlyControl::waitForState(const QString& state, std::chrono::milliseconds limit) {
    return waitForProperty(QStringLiteral("State"), state, limit);
}

} // namespace murmurly::testing
