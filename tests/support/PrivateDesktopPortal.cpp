#include "PrivateDesktopPortal.h"

#include "ChildProcess.h"
#include "WaitUntil.h"

#include <QAtomicInteger>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusVariant>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace murmurly::testing {

namespace {

const QString frontendProgram = QStringLiteral("/usr/libexec/xdg-desktop-portal");
const QString frontendService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString controlPath = QStringLiteral("/control");
const QString controlInterface = QStringLiteral("com.qv.murmurly.test.ShortcutsPortal");
const QString desktopName = QStringLiteral("murmurlytest");
constexpr std::chrono::seconds startLimit{30};
constexpr int callLimitMilliseconds = 10000;

QString nextConnectionName() {
    static QAtomicInteger<int> counter;
    return QStringLiteral("private-desktop-portal-%1").arg(counter.fetchAndAddRelaxed(1));
}

QString tail(const QString& path, int lines) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return QStringLiteral("(no log)");
    const QStringList all = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
    return all.mid(std::max<qsizetype>(0, all.size() - lines)).join(QLatin1Char('\n'));
}

} // namespace

PrivateDesktopPortal::PrivateDesktopPortal(const QString& busAddress)
    : m_busAddress(busAddress)
    , m_connectionName(nextConnectionName())
    , m_bus(QDBusConnection::connectToBus(busAddress, m_connectionName)) {
    if (!m_dir.isValid()) {
        fail(QStringLiteral("no temporary folder"));
        return;
    }
    if (!m_bus.isConnected()) {
        fail(QStringLiteral("cannot connect to the bus at ") + busAddress);
        return;
    }
    QFile portal(m_dir.filePath(desktopName + QStringLiteral(".portal")));
    if (!portal.open(QIODevice::WriteOnly) ||
        portal.write("[portal]\n"
                     "DBusName=" +
                     backendService.toUtf8() +
                     "\n"
                     "Interfaces=org.freedesktop.impl.portal.GlobalShortcuts;"
                     "org.freedesktop.impl.portal.RemoteDesktop;\n"
                     "UseIn=" +
                     desktopName.toUtf8() + "\n") < 0) {
        fail(QStringLiteral("cannot write the portal file"));
        return;
    }
    portal.close();
    if (!startStandIn()) return;
    startFrontend();
}

PrivateDesktopPortal::~PrivateDesktopPortal() {
    stopChild(m_frontend);
    stopChild(m_standIn);
    QDBusConnection::disconnectFromBus(m_connectionName);
}

bool PrivateDesktopPortal::isRunning() const {
    return m_error.isEmpty() && m_standIn.state() == QProcess::Running &&
           m_frontend.state() == QProcess::Running;
}

QString PrivateDesktopPortal::error() const {
    QString reason = m_error;
    if (reason.isEmpty() && m_standIn.state() != QProcess::Running)
        reason = QStringLiteral("the stand-in for the desktop has ended");
    if (reason.isEmpty() && m_frontend.state() != QProcess::Running)
        reason = QStringLiteral("xdg-desktop-portal has ended");
    if (reason.isEmpty()) return {};
    return reason + QLatin1Char('\n') + log();
}

QString PrivateDesktopPortal::log() const {
    return QStringLiteral("--- xdg-desktop-portal, last lines ---\n") +
           tail(m_dir.filePath(QStringLiteral("frontend.log")), 40) +
           QStringLiteral("\n--- stand-in, last lines ---\n") +
           tail(m_dir.filePath(QStringLiteral("stand-in.log")), 40);
}

bool PrivateDesktopPortal::fail(const QString& reason) {
    if (m_error.isEmpty()) m_error = reason;
    return false;
}

bool PrivateDesktopPortal::startStandIn() {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), m_busAddress);
    m_standIn.setProcessEnvironment(environment);
    m_standIn.setStandardOutputFile(QProcess::nullDevice());
    m_standIn.setStandardErrorFile(m_dir.filePath(QStringLiteral("stand-in.log")));
    endWithThisProcess(m_standIn);
    m_standIn.start(QStringLiteral(MURMURLY_STAND_IN_DESKTOP_PORTAL), {});
    if (!m_standIn.waitForStarted(30000))
        return fail(QStringLiteral("the stand-in did not start: ") + m_standIn.errorString());
    const bool owned = waitUntil(
        [this] {
            return m_standIn.state() != QProcess::Running ||
                   m_bus.interface()->isServiceRegistered(backendService).value();
        },
        startLimit);
    if (!owned || m_standIn.state() != QProcess::Running)
        return fail(QStringLiteral("the stand-in did not take ") + backendService);
    return true;
}

bool PrivateDesktopPortal::startFrontend() {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), m_busAddress);
    // Only the stand-in's portal file, chosen for this desktop name.
    environment.insert(QStringLiteral("XDG_DESKTOP_PORTAL_DIR"), m_dir.path());
    environment.insert(QStringLiteral("XDG_CURRENT_DESKTOP"), desktopName);
    // Nothing of the user's: no configuration, no GVfs daemon to look for on the bus.
    environment.insert(QStringLiteral("HOME"), m_dir.path());
    for (const char* name : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_STATE_HOME"})
        environment.remove(QString::fromLatin1(name));
    environment.insert(QStringLiteral("GIO_USE_VFS"), QStringLiteral("local"));
    m_frontend.setProcessEnvironment(environment);
    m_frontend.setProcessChannelMode(QProcess::MergedChannels);
    // A restart adds to the same log.
    m_frontend.setStandardOutputFile(m_dir.filePath(QStringLiteral("frontend.log")), QIODevice::Append);
    endWithThisProcess(m_frontend);
    m_frontend.start(frontendProgram, {QStringLiteral("--verbose")});
    if (!m_frontend.waitForStarted(30000))
        return fail(QStringLiteral("xdg-desktop-portal did not start: ") + m_frontend.errorString());
    // Owning its name is not enough: the portals are exported around the same time, and only a
    // readable version tells that global shortcuts are served.
    QDBusMessage get = QDBusMessage::createMethodCall(frontendService, portalPath,
                                                      QStringLiteral("org.freedesktop.DBus.Properties"),
                                                      QStringLiteral("Get"));
    get << QStringLiteral("org.freedesktop.portal.GlobalShortcuts") << QStringLiteral("version");
    const bool serving = waitUntil(
        [&] {
            if (m_frontend.state() != QProcess::Running) return true;
            if (!m_bus.interface()->isServiceRegistered(frontendService).value()) return false;
            const QDBusReply<QDBusVariant> version = m_bus.call(get, QDBus::Block, 2000);
            return version.isValid() && version.value().variant().toUInt() >= 1;
        },
        startLimit);
    if (!serving || m_frontend.state() != QProcess::Running)
        return fail(
            QStringLiteral("xdg-desktop-portal did not serve org.freedesktop.portal.GlobalShortcuts"));
    return true;
}

void PrivateDesktopPortal::stopFrontend() {
    stopChild(m_frontend);
    // Its name goes with its connection, which the bus may drop a moment after it ended.
    waitUntil([this] { return !m_bus.interface()->isServiceRegistered(frontendService).value(); },
              startLimit);
}

bool PrivateDesktopPortal::restartFrontend() {
    if (!m_error.isEmpty()) return false;
    stopFrontend();
    if (m_bus.interface()->isServiceRegistered(frontendService).value())
        return fail(
            QStringLiteral("org.freedesktop.portal.Desktop stayed owned after xdg-desktop-portal ended"));
    // The desktop's side drops the old frontend's sessions once the bus tells it that it left.
    if (!waitUntil([this] { return liveSessions() == 0u; }, startLimit))
        return fail(QStringLiteral("the stand-in kept the sessions of the ended frontend"));
    return startFrontend();
}

std::optional<QVariant> PrivateDesktopPortal::callStandIn(const QString& method,
                                                          const QVariantList& arguments) {
    QDBusMessage call = QDBusMessage::createMethodCall(backendService, controlPath, controlInterface, method);
    call.setArguments(arguments);
    const QDBusMessage reply = m_bus.call(call, QDBus::Block, callLimitMilliseconds);
    if (reply.type() != QDBusMessage::ReplyMessage) return std::nullopt;
    return reply.arguments().value(0);
}

std::optional<uint> PrivateDesktopPortal::countFromStandIn(const QString& method,
                                                           const QVariantList& arguments) {
    const auto answer = callStandIn(method, arguments);
    if (!answer || answer->metaType().id() != QMetaType::UInt) return std::nullopt;
    return answer->toUInt();
}

std::optional<uint> PrivateDesktopPortal::activate(const QString& id) {
    return countFromStandIn(QStringLiteral("Activate"), {id});
}

std::optional<uint> PrivateDesktopPortal::deactivate(const QString& id) {
    return countFromStandIn(QStringLiteral("Deactivate"), {id});
}

bool PrivateDesktopPortal::setBindAnswer(uint response) {
    return callStandIn(QStringLiteral("SetBindAnswer"), {response}).has_value();
}

bool PrivateDesktopPortal::setAssignedTrigger(const QString& id, const QString& triggerDescription) {
    return callStandIn(QStringLiteral("SetAssignedTrigger"), {id, triggerDescription}).has_value();
}

std::optional<uint> PrivateDesktopPortal::changeTrigger(const QString& id,
                                                        const QString& triggerDescription) {
    return countFromStandIn(QStringLiteral("ChangeTrigger"), {id, triggerDescription});
}

std::optional<uint> PrivateDesktopPortal::closeSessions() {
    return countFromStandIn(QStringLiteral("CloseSessions"));
}

std::optional<uint> PrivateDesktopPortal::liveSessions() {
    return countFromStandIn(QStringLiteral("LiveSessions"));
}

std::optional<uint> PrivateDesktopPortal::sessionsBinding(const QString& id) {
    return countFromStandIn(QStringLiteral("SessionsBinding"), {id});
}

bool PrivateDesktopPortal::setConsentAnswer(uint response) {
    return callStandIn(QStringLiteral("SetConsentAnswer"), {response}).has_value();
}

std::optional<uint> PrivateDesktopPortal::consentRequests() {
    return countFromStandIn(QStringLiteral("ConsentRequests"));
}

std::optional<uint> PrivateDesktopPortal::remoteDesktopSessions() {
    return countFromStandIn(QStringLiteral("RemoteDesktopSessions"));
}

std::optional<QList<QPair<int, uint>>> PrivateDesktopPortal::keysyms() {
    const auto answer = callStandIn(QStringLiteral("Keysyms"));
    if (!answer) return std::nullopt;
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(answer->toString().toUtf8(), &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isArray()) return std::nullopt;
    QList<QPair<int, uint>> keys;
    for (const QJsonValue& value : document.array()) {
        const QJsonArray pair = value.toArray();
        if (pair.size() != 2) return std::nullopt;
        keys.append({pair.at(0).toInt(), static_cast<uint>(pair.at(1).toInteger())});
    }
    return keys;
}

std::optional<QList<PrivateDesktopPortal::BindRequest>> PrivateDesktopPortal::bindRequests() {
    const auto answer = callStandIn(QStringLiteral("BindRequests"));
    if (!answer) return std::nullopt;
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(answer->toString().toUtf8(), &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isArray()) return std::nullopt;
    QList<BindRequest> requests;
    for (const QJsonValue& value : document.array()) {
        const QJsonObject object = value.toObject();
        BindRequest request{object.value(QStringLiteral("session")).toString(),
                            object.value(QStringLiteral("app_id")).toString(),
                            object.value(QStringLiteral("parent_window")).toString(),
                            {}};
        for (const QJsonValue& shortcut : object.value(QStringLiteral("shortcuts")).toArray()) {
            const QJsonObject fields = shortcut.toObject();
            request.shortcuts << RequestedShortcut{
                fields.value(QStringLiteral("id")).toString(),
                fields.value(QStringLiteral("description")).toString(),
                fields.value(QStringLiteral("preferred_trigger")).toString()};
        }
        requests << request;
    }
    return requests;
}

} // namespace murmurly::testing
