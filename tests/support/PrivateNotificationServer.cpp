#include "PrivateNotificationServer.h"

#include "ChildProcess.h"
#include "WaitUntil.h"

#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusVariant>
#include <QDir>
#include <QFile>

#include <algorithm>

namespace murmurly::testing {

namespace {

const QString service = QStringLiteral("org.freedesktop.Notifications");
const QString objectPath = QStringLiteral("/org/freedesktop/Notifications");
const QString dunstInterface = QStringLiteral("org.dunstproject.cmd0");
constexpr int callLimitMilliseconds = 10000;

} // namespace

PrivateNotificationServer::PrivateNotificationServer(const QString& busAddress)
    : m_bus(QDBusConnection::connectToBus(busAddress, QStringLiteral("notification-server-reader"))) {
    if (!m_dir.isValid() || !m_bus.isConnected()) {
        m_error = QStringLiteral("no temporary folder or no bus");
        return;
    }
    m_records = m_dir.filePath(QStringLiteral("shown"));
    QDir().mkpath(m_records);
    const QString script = m_dir.filePath(QStringLiteral("record.sh"));
    QFile recorder(script);
    // dunst runs this for every notification it shows: one file each, named by the time it ran,
    // renamed into place once whole.
    if (!recorder.open(QIODevice::WriteOnly) ||
        recorder.write(
            "#!/bin/sh\n"
            "f=\"" +
            QFile::encodeName(m_records) +
            "/$(date +%s%N)-$$\"\n"
            "printf '%s\\n%s\\n%s' \"$DUNST_ID\" \"$DUNST_APP_NAME\" \"$DUNST_BODY\" > \"$f.part\"\n"
            "mv \"$f.part\" \"$f\"\n") < 0 ||
        !recorder.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner)) {
        m_error = QStringLiteral("cannot write the recording script");
        return;
    }
    recorder.close();
    const QString config = m_dir.filePath(QStringLiteral("dunstrc"));
    QFile file(config);
    if (!file.open(QIODevice::WriteOnly) ||
        file.write("[global]\n    markup = no\n    history_length = 100\n"
                   // Nothing expires on its own: what a test sees on screen is what was sent.
                   "[urgency_low]\n    timeout = 0\n[urgency_normal]\n    timeout = 0\n"
                   "[urgency_critical]\n    timeout = 0\n"
                   "[record]\n    appname = \"*\"\n    script = " +
                   QFile::encodeName(script) + "\n") < 0) {
        m_error = QStringLiteral("cannot write the dunst configuration");
        return;
    }
    file.close();
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), busAddress);
    environment.insert(QStringLiteral("HOME"), m_dir.path());
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    m_server.setProcessEnvironment(environment);
    m_server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_server.setStandardOutputFile(QProcess::nullDevice());
    endWithThisProcess(m_server);
    m_server.start(QStringLiteral("dunst"), {QStringLiteral("-config"), config});
    if (!m_server.waitForStarted(30000)) {
        m_error = QStringLiteral("dunst did not start: ") + m_server.errorString();
        return;
    }
    const bool owned = waitUntil(
        [this] {
            return m_server.state() != QProcess::Running ||
                   m_bus.interface()->isServiceRegistered(service).value();
        },
        std::chrono::seconds(30));
    if (!owned || m_server.state() != QProcess::Running)
        m_error = QStringLiteral("dunst did not take the notification service on the bus");
}

PrivateNotificationServer::~PrivateNotificationServer() {
    stopChild(m_server);
    QDBusConnection::disconnectFromBus(QStringLiteral("notification-server-reader"));
}

std::optional<uint> PrivateNotificationServer::displayedCount() {
    QDBusMessage call = QDBusMessage::createMethodCall(
        service, objectPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    call << dunstInterface << QStringLiteral("displayedLength");
    const QDBusReply<QDBusVariant> reply = m_bus.call(call, QDBus::Block, callLimitMilliseconds);
    if (!reply.isValid()) return std::nullopt;
    return reply.value().variant().toUInt();
}

std::optional<QList<QVariantMap>> PrivateNotificationServer::closeAllAndListHistory() {
    const QDBusMessage close = QDBusMessage::createMethodCall(service, objectPath, dunstInterface,
                                                              QStringLiteral("NotificationCloseAll"));
    if (m_bus.call(close, QDBus::Block, callLimitMilliseconds).type() != QDBusMessage::ReplyMessage)
        return std::nullopt;
    const QDBusMessage list = QDBusMessage::createMethodCall(service, objectPath, dunstInterface,
                                                             QStringLiteral("NotificationListHistory"));
    const QDBusMessage reply = m_bus.call(list, QDBus::Block, callLimitMilliseconds);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return std::nullopt;
    QList<QVariantMap> notifications;
    const QDBusArgument array = reply.arguments().first().value<QDBusArgument>();
    array.beginArray();
    while (!array.atEnd()) {
        QVariantMap fields;
        array >> fields;
        // Values of an a{sv} may still arrive wrapped in their variant.
        for (auto it = fields.begin(); it != fields.end(); ++it)
            if (it.value().canConvert<QDBusVariant>())
                it.value() = it.value().value<QDBusVariant>().variant();
        notifications << fields;
    }
    array.endArray();
    std::sort(notifications.begin(), notifications.end(), [](const QVariantMap& a, const QVariantMap& b) {
        return a.value(QStringLiteral("id")).toUInt() < b.value(QStringLiteral("id")).toUInt();
    });
    return notifications;
}

bool PrivateNotificationServer::activateNewest() {
    QDBusMessage call = QDBusMessage::createMethodCall(service, objectPath, dunstInterface,
                                                       QStringLiteral("NotificationAction"));
    call << 0u;
    return m_bus.call(call, QDBus::Block, callLimitMilliseconds).type() == QDBusMessage::ReplyMessage;
}

std::optional<uint> PrivateNotificationServer::notifyAsAnotherProgram(const QString& body) {
    QDBusMessage call =
        QDBusMessage::createMethodCall(service, objectPath, service, QStringLiteral("Notify"));
    call << QStringLiteral("marker") << 0u << QString() << QStringLiteral("Marker") << body << QStringList()
         << QVariantMap() << -1;
    const QDBusReply<uint> reply = m_bus.call(call, QDBus::Block, callLimitMilliseconds);
    if (!reply.isValid()) return std::nullopt;
    return reply.value();
}

QList<PrivateNotificationServer::Shown> PrivateNotificationServer::shown() const {
    QList<Shown> all;
    const QDir records(m_records);
    // Names start with the time in nanoseconds, all of the same width for years to come.
    for (const QString& name : records.entryList(QDir::Files, QDir::Name)) {
        QFile file(records.filePath(name));
        if (name.endsWith(QStringLiteral(".part")) || !file.open(QIODevice::ReadOnly)) continue;
        const QString text = QString::fromUtf8(file.readAll());
        const QStringList parts = text.split(QLatin1Char('\n'));
        if (parts.size() < 3) continue;
        all << Shown{parts[0].toUInt(), parts[1], parts.mid(2).join(QLatin1Char('\n'))};
    }
    return all;
}

} // namespace murmurly::testing
