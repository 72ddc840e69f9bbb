#include "StandInPortalRegistryProcess.h"

#include "ChildProcess.h"
#include "WaitUntil.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QProcessEnvironment>

namespace murmurly::testing {

namespace {

const QString connectionName = QStringLiteral("stand-in-portal-registry");
const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");

} // namespace

StandInPortalRegistryProcess::StandInPortalRegistryProcess(const QString& busAddress)
    : m_bus(QDBusConnection::connectToBus(busAddress, connectionName)) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), busAddress);
    m_process.setProcessEnvironment(environment);
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    endWithThisProcess(m_process);
    m_process.start(QStringLiteral(MURMURLY_STAND_IN_PORTAL_REGISTRY), {});
    m_running = m_process.waitForStarted(30000) &&
                waitUntil(
                    [this] {
                        return m_process.state() != QProcess::Running ||
                               m_bus.interface()->isServiceRegistered(portalService).value();
                    },
                    std::chrono::seconds(30)) &&
                m_process.state() == QProcess::Running;
}

StandInPortalRegistryProcess::~StandInPortalRegistryProcess() {
    stopChild(m_process);
    QDBusConnection::disconnectFromBus(connectionName);
}

QStringList StandInPortalRegistryProcess::calls() {
    return ask(QStringLiteral("Calls"), {});
}

QStringList StandInPortalRegistryProcess::callsFrom(const QString& sender) {
    return ask(QStringLiteral("CallsFrom"), {sender});
}

QStringList StandInPortalRegistryProcess::ask(const QString& method, const QVariantList& arguments) {
    QDBusMessage message =
        QDBusMessage::createMethodCall(portalService, QStringLiteral("/control"),
                                       QStringLiteral("com.qv.murmurly.test.PortalRegistry"), method);
    message.setArguments(arguments);
    const QDBusMessage reply = m_bus.call(message, QDBus::Block, 10000);
    return reply.type() == QDBusMessage::ReplyMessage ? reply.arguments().value(0).toStringList()
                                                      : QStringList();
}

} // namespace murmurly::testing
