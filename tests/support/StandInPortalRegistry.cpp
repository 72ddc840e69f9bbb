// A stand-in for a desktop portal frontend that has the host application registry
// (xdg-desktop-portal 1.19.4 and later), for checking what a program tells such a portal and in
// which order. It owns org.freedesktop.portal.Desktop on the session bus and serves, at
// /org/freedesktop/portal/desktop:
//   org.freedesktop.host.portal.Registry   Register(s app_id, a{sv} options), taken once per
//                                          caller and only before the caller's first other call,
//                                          as the frontend documents; refused otherwise
//   org.freedesktop.DBus.Properties        Get of the registry's, the global shortcuts' and the
//                                          remote desktop's version, and of the remote
//                                          desktop's AvailableDeviceTypes (a keyboard)
// Every other call is refused as unknown. Each call is recorded, in order of arrival, and the
// record is read at /control, com.qv.murmurly.test.PortalRegistry, Calls() -> as, one line per
// call: "INTERFACE.MEMBER ARGUMENTS", or CallsFrom(s sender) -> as, those of one connection. Every
// call is logged on stderr. SIGTERM ends it.
#include "StandInBusService.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QSet>
#include <QStringList>
#include <QVariantMap>

#include <cstdio>

namespace {

const QString serviceName = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString controlPath = QStringLiteral("/control");
const QString controlInterface = QStringLiteral("com.qv.murmurly.test.PortalRegistry");
const QString registryInterface = QStringLiteral("org.freedesktop.host.portal.Registry");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
const QString introspectableInterface = QStringLiteral("org.freedesktop.DBus.Introspectable");

void logLine(const QString& line) {
    const QByteArray bytes = QStringLiteral("registry stand-in: %1\n").arg(line).toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stderr);
    std::fflush(stderr);
}

class StandInRegistry final : public QDBusVirtualObject {
public:
    explicit StandInRegistry(QDBusConnection bus)
        : m_bus(std::move(bus)) {}

    QString introspect(const QString& path) const override {
        if (path == controlPath)
            return QStringLiteral(R"xml(<interface name="com.qv.murmurly.test.PortalRegistry">
  <method name="Calls"><arg type="as" direction="out"/></method>
  <method name="CallsFrom"><arg type="s" direction="in"/><arg type="as" direction="out"/></method>
</interface>
)xml");
        if (path == portalPath)
            return QStringLiteral(R"xml(<interface name="org.freedesktop.host.portal.Registry">
  <method name="Register"><arg type="s" direction="in"/><arg type="a{sv}" direction="in"/></method>
  <property name="version" type="u" access="read"/>
</interface>
)xml");
        return {};
    }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection&) override {
        const QString interface = message.interface();
        const QString member = message.member();
        if (interface == introspectableInterface) {
            m_bus.send(
                message.createReply(QStringLiteral("<node>%1</node>").arg(introspect(message.path()))));
            return true;
        }
        if (message.path() == controlPath) {
            if (member == QLatin1String("Calls")) {
                m_bus.send(message.createReply(m_calls));
            } else if (member == QLatin1String("CallsFrom") && message.signature() == QLatin1String("s")) {
                const QString sender = message.arguments().constFirst().toString();
                QStringList calls;
                for (qsizetype i = 0; i < m_calls.size(); ++i)
                    if (m_senders.at(i) == sender) calls << m_calls.at(i);
                m_bus.send(message.createReply(calls));
            } else
                m_bus.send(message.createErrorReply(QDBusError::UnknownMethod, member));
            return true;
        }
        const QList<QVariant> args = message.arguments();
        if (interface == registryInterface && member == QLatin1String("Register") &&
            message.signature() == QLatin1String("sa{sv}")) {
            const QVariantMap options = qdbus_cast<QVariantMap>(args.at(1));
            record(message, QStringLiteral("%1 %2 options").arg(args.at(0).toString()).arg(options.size()));
            if (m_callers.contains(message.service())) {
                m_bus.send(message.createErrorReply(
                    QDBusError::AccessDenied,
                    QStringLiteral("registering is possible only once, before any portal call")));
            } else {
                m_callers.insert(message.service());
                m_bus.send(message.createReply());
            }
            return true;
        }
        m_callers.insert(message.service());
        if (interface == propertiesInterface && member == QLatin1String("Get") &&
            message.signature() == QLatin1String("ss")) {
            const QString ofInterface = args.at(0).toString();
            const QString name = args.at(1).toString();
            record(message, ofInterface + QLatin1Char(' ') + name);
            const bool known = (name == QLatin1String("version") &&
                                (ofInterface == registryInterface ||
                                 ofInterface == QLatin1String("org.freedesktop.portal.GlobalShortcuts") ||
                                 ofInterface == QLatin1String("org.freedesktop.portal.RemoteDesktop"))) ||
                               (name == QLatin1String("AvailableDeviceTypes") &&
                                ofInterface == QLatin1String("org.freedesktop.portal.RemoteDesktop"));
            if (known)
                m_bus.send(message.createReply(QVariant::fromValue(QDBusVariant(1u))));
            else
                m_bus.send(
                    message.createErrorReply(QDBusError::InvalidArgs, QStringLiteral("no such property")));
            return true;
        }
        record(message, message.signature());
        m_bus.send(message.createErrorReply(QDBusError::UnknownMethod,
                                            QStringLiteral("this stand-in serves only the registry")));
        return true;
    }

private:
    void record(const QDBusMessage& message, const QString& arguments) {
        const QString line = QStringLiteral("%1.%2 %3").arg(message.interface(), message.member(), arguments);
        logLine(line);
        m_calls << line;
        m_senders << message.service();
    }

    QDBusConnection m_bus;
    QStringList m_calls;
    QStringList m_senders;   // who made each call, by unique bus name
    QSet<QString> m_callers; // who registered or called already
};

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    murmurly::testing::StandInBusService service(logLine);
    if (!service.isConnected()) return 1;
    StandInRegistry registry(service.bus());
    return service.serve(
        registry, {{portalPath, QDBusConnection::SingleNode}, {controlPath, QDBusConnection::SingleNode}},
        serviceName);
}
