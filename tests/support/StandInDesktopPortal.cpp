// The desktop's side of the global-shortcuts and remote-desktop portals, for the tests: what
// xdg-desktop-portal calls as the backend of org.freedesktop.portal.GlobalShortcuts and
// org.freedesktop.portal.RemoteDesktop. It binds whatever it is asked without a dialog, and the
// test, through a control object, decides how binds are answered, which keys the desktop assigns,
// and when shortcuts fire, change or sessions end; how the user answers a remote-desktop consent,
// and which keys were typed through it.
//
// On the session bus of its environment it owns org.freedesktop.impl.portal.desktop.murmurlytest
// and serves
//   /org/freedesktop/portal/desktop   org.freedesktop.impl.portal.GlobalShortcuts (version 1)
//                                     org.freedesktop.impl.portal.RemoteDesktop (version 2,
//                                     keyboard keysyms only)
//   …/session/…                       org.freedesktop.impl.portal.Session of each live session
//   …/request/…                       org.freedesktop.impl.portal.Request (every call is answered
//                                     at once, so Close has nothing to end)
//   /control                          com.qv.murmurly.test.ShortcutsPortal, below
//
// Control methods:
//   Activate(s id) -> u, Deactivate(s id) -> u     signal every live session that bound `id`;
//                                                  the answer is how many were signalled
//   SetBindAnswer(u response)                      the response of following binds (0, 1 or 2)
//   SetAssignedTrigger(s id, s trigger)            the trigger following binds report for `id`
//   ChangeTrigger(s id, s trigger) -> u            reassigns `id` in every live session that
//                                                  bound it and tells each with ShortcutsChanged
//   CloseSessions() -> u                           ends every live session as a desktop would
//   BindRequests() -> s                            every bind received, in order, as JSON
//   LiveSessions() -> u, SessionsBinding(s id) -> u   sessions of both kinds count as live
//   SetConsentAnswer(u response)                   how following remote-desktop Starts that ask
//                                                  the user are answered (0 granted, 1 dismissed)
//   ConsentRequests() -> u                         how many Starts asked the user
//   Keysyms() -> s                                 every keysym accepted, in order, as JSON
//                                                  [[keysym, state], ...]
//   RemoteDesktopSessions() -> u                   live remote-desktop sessions
//
// A Start asks the user unless its SelectDevices carried restore data this process issued; a
// granted Start with persist_mode 1 or 2 answers such data ("restore_data", (suv)), as a desktop
// that remembers the consent.
//
// A session lives from its creation until the frontend closes it, CloseSessions ends it, or the
// frontend that created it leaves the bus. Every call is logged on stderr. SIGTERM ends it.
#include "StandInBusService.h"
#include "app/PortalShortcutEntry.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QVariantMap>

#include <chrono>
#include <cstdio>

using murmurly::PortalShortcutEntry;

namespace {

const QString serviceName = QStringLiteral("org.freedesktop.impl.portal.desktop.murmurlytest");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString controlPath = QStringLiteral("/control");
const QString shortcutsInterface = QStringLiteral("org.freedesktop.impl.portal.GlobalShortcuts");
const QString remoteDesktopInterface = QStringLiteral("org.freedesktop.impl.portal.RemoteDesktop");
const QString sessionInterface = QStringLiteral("org.freedesktop.impl.portal.Session");
const QString requestInterface = QStringLiteral("org.freedesktop.impl.portal.Request");
const QString controlInterface = QStringLiteral("com.qv.murmurly.test.ShortcutsPortal");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
const QString introspectableInterface = QStringLiteral("org.freedesktop.DBus.Introspectable");

void logLine(const QString& line) {
    const QByteArray bytes = QStringLiteral("stand-in: %1\n").arg(line).toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stderr);
    std::fflush(stderr);
}

// A value of an a{sv}, unwrapped if it still arrives as a variant.
QString stringOption(const QVariantMap& options, const QString& key) {
    const QVariant value = options.value(key);
    if (value.canConvert<QDBusVariant>()) return value.value<QDBusVariant>().variant().toString();
    return value.toString();
}

QList<PortalShortcutEntry> readShortcuts(const QVariant& value) {
    QList<PortalShortcutEntry> entries;
    if (!value.canConvert<QDBusArgument>()) return entries;
    const QDBusArgument argument = value.value<QDBusArgument>();
    argument >> entries;
    return entries;
}

// Restore data as the remote-desktop portal passes it: the vendor, the version of the vendor's
// data, and the data, here the id of the consent it stands for.
const QString restoreVendor = QStringLiteral("murmurlytest");
constexpr uint restoreVersion = 1;

struct RestoreData {
    QString vendor;
    uint version = 0;
    QDBusVariant data;
};

QDBusArgument& operator<<(QDBusArgument& argument, const RestoreData& restore) {
    argument.beginStructure();
    argument << restore.vendor << restore.version << restore.data;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, RestoreData& restore) {
    argument.beginStructure();
    argument >> restore.vendor >> restore.version >> restore.data;
    argument.endStructure();
    return argument;
}

} // namespace

Q_DECLARE_METATYPE(RestoreData)

namespace {

// The consent id in `options`' restore data, if it is this stand-in's kind.
QString restoredConsent(const QVariantMap& options) {
    QVariant value = options.value(QStringLiteral("restore_data"));
    if (value.canConvert<QDBusVariant>()) value = value.value<QDBusVariant>().variant();
    if (!value.canConvert<QDBusArgument>()) return {};
    const QDBusArgument argument = value.value<QDBusArgument>();
    if (argument.currentSignature() != QLatin1String("(suv)")) return {};
    RestoreData restore;
    argument >> restore;
    if (restore.vendor != restoreVendor || restore.version != restoreVersion) return {};
    return restore.data.variant().toString();
}

uint uintOption(const QVariantMap& options, const QString& key, uint fallback) {
    QVariant value = options.value(key);
    if (value.canConvert<QDBusVariant>()) value = value.value<QDBusVariant>().variant();
    return value.metaType().id() == QMetaType::UInt ? value.toUInt() : fallback;
}

qulonglong monotonicMilliseconds() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<qulonglong>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

class StandInPortal : public QDBusVirtualObject {
public:
    explicit StandInPortal(QDBusConnection bus)
        : m_bus(bus) {
        m_frontends.setConnection(m_bus);
        m_frontends.setWatchMode(QDBusServiceWatcher::WatchForUnregistration);
        QObject::connect(&m_frontends, &QDBusServiceWatcher::serviceUnregistered, this,
                         [this](const QString& name) { forgetSessionsOf(name); });
    }

    QString introspect(const QString& path) const override;
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;

private:
    struct BoundShortcut {
        QString id;
        QString description;
        QString triggerDescription;
    };
    struct Session {
        QString creator; // the frontend's unique name
        QString appId;
        QList<BoundShortcut> shortcuts;
        // Remote desktop only.
        bool remoteDesktop = false;
        uint types = 0;
        uint persistMode = 0;
        QString restoredConsent; // the consent its restore data stood for, if one issued here
        bool started = false;
        uint devices = 0;
    };

    // The portal's side, called by the frontend.
    // A session of either portal; both kinds share the impl Session objects.
    void createSession(const QDBusMessage& message, bool remoteDesktop);
    void bindShortcuts(const QDBusMessage& message);
    void listShortcuts(const QDBusMessage& message);
    void closeSession(const QDBusMessage& message);
    void properties(const QDBusMessage& message);
    void remoteDesktop(const QDBusMessage& message);
    void selectDevices(const QDBusMessage& message);
    void start(const QDBusMessage& message);
    void notifyKeyboardKeysym(const QDBusMessage& message);
    // The test's side.
    void control(const QDBusMessage& message);
    uint signalEdge(const QString& name, const QString& id);
    uint changeTrigger(const QString& id, const QString& trigger);
    uint closeSessions();
    QString bindRequestsJson() const;
    uint sessionsBinding(const QString& id) const;

    void forgetSessionsOf(const QString& frontend);
    bool binds(const Session& session, const QString& id) const;
    QVariant shortcutList(const Session& session) const;
    void reply(const QDBusMessage& message, const QVariantList& arguments = {});
    void fail(const QDBusMessage& message, const QString& error, const QString& text);

    QDBusConnection m_bus;
    QDBusServiceWatcher m_frontends;
    QMap<QString, Session> m_sessions; // by handle
    uint m_bindAnswer = 0;
    QMap<QString, QString> m_assignedTriggers;
    QJsonArray m_bindRequests;
    uint m_consentAnswer = 0;
    uint m_consentRequests = 0;
    uint m_consentsIssued = 0;
    QStringList m_issuedConsents;
    QJsonArray m_keysyms;
};

QString StandInPortal::introspect(const QString& path) const {
    if (path == controlPath)
        return QStringLiteral(R"xml(<interface name="com.qv.murmurly.test.ShortcutsPortal">
  <method name="Activate"><arg type="s" direction="in"/><arg type="u" direction="out"/></method>
  <method name="Deactivate"><arg type="s" direction="in"/><arg type="u" direction="out"/></method>
  <method name="SetBindAnswer"><arg type="u" direction="in"/></method>
  <method name="SetAssignedTrigger"><arg type="s" direction="in"/><arg type="s" direction="in"/></method>
  <method name="ChangeTrigger"><arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="u" direction="out"/></method>
  <method name="CloseSessions"><arg type="u" direction="out"/></method>
  <method name="BindRequests"><arg type="s" direction="out"/></method>
  <method name="LiveSessions"><arg type="u" direction="out"/></method>
  <method name="SessionsBinding"><arg type="s" direction="in"/><arg type="u" direction="out"/></method>
  <method name="SetConsentAnswer"><arg type="u" direction="in"/></method>
  <method name="ConsentRequests"><arg type="u" direction="out"/></method>
  <method name="Keysyms"><arg type="s" direction="out"/></method>
  <method name="RemoteDesktopSessions"><arg type="u" direction="out"/></method>
</interface>
)xml");
    if (path == portalPath)
        return QStringLiteral(R"xml(<interface name="org.freedesktop.impl.portal.GlobalShortcuts">
  <method name="CreateSession"><arg type="o" direction="in"/><arg type="o" direction="in"/><arg type="s" direction="in"/><arg type="a{sv}" direction="in"/><arg type="u" direction="out"/><arg type="a{sv}" direction="out"/></method>
  <method name="BindShortcuts"><arg type="o" direction="in"/><arg type="o" direction="in"/><arg type="a(sa{sv})" direction="in"/><arg type="s" direction="in"/><arg type="a{sv}" direction="in"/><arg type="u" direction="out"/><arg type="a{sv}" direction="out"/></method>
  <method name="ListShortcuts"><arg type="o" direction="in"/><arg type="o" direction="in"/><arg type="u" direction="out"/><arg type="a{sv}" direction="out"/></method>
  <signal name="Activated"><arg type="o"/><arg type="s"/><arg type="t"/><arg type="a{sv}"/></signal>
  <signal name="Deactivated"><arg type="o"/><arg type="s"/><arg type="t"/><arg type="a{sv}"/></signal>
  <signal name="ShortcutsChanged"><arg type="o"/><arg type="a(sa{sv})"/></signal>
  <property name="version" type="u" access="read"/>
</interface>
<interface name="org.freedesktop.impl.portal.RemoteDesktop">
  <method name="CreateSession"><arg type="o" direction="in"/><arg type="o" direction="in"/><arg type="s" direction="in"/><arg type="a{sv}" direction="in"/><arg type="u" direction="out"/><arg type="a{sv}" direction="out"/></method>
  <method name="SelectDevices"><arg type="o" direction="in"/><arg type="o" direction="in"/><arg type="s" direction="in"/><arg type="a{sv}" direction="in"/><arg type="u" direction="out"/><arg type="a{sv}" direction="out"/></method>
  <method name="Start"><arg type="o" direction="in"/><arg type="o" direction="in"/><arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="a{sv}" direction="in"/><arg type="u" direction="out"/><arg type="a{sv}" direction="out"/></method>
  <method name="NotifyKeyboardKeysym"><arg type="o" direction="in"/><arg type="a{sv}" direction="in"/><arg type="i" direction="in"/><arg type="u" direction="in"/></method>
  <property name="AvailableDeviceTypes" type="u" access="read"/>
  <property name="version" type="u" access="read"/>
</interface>
)xml");
    if (m_sessions.contains(path))
        return QStringLiteral(R"xml(<interface name="org.freedesktop.impl.portal.Session">
  <method name="Close"/>
  <signal name="Closed"/>
  <property name="version" type="u" access="read"/>
</interface>
)xml");
    return {};
}

bool StandInPortal::handleMessage(const QDBusMessage& message, const QDBusConnection&) {
    const QString path = message.path();
    const QString interface = message.interface();
    const QString member = message.member();
    if (interface == introspectableInterface && member == QLatin1String("Introspect")) {
        reply(message, {QStringLiteral("<node>%1</node>").arg(introspect(path))});
        return true;
    }
    if (interface == propertiesInterface) {
        properties(message);
        return true;
    }
    if (path == controlPath && (interface.isEmpty() || interface == controlInterface)) {
        control(message);
        return true;
    }
    if (path == portalPath && interface == remoteDesktopInterface) {
        remoteDesktop(message);
        return true;
    }
    if (path == portalPath) {
        if (member == QLatin1String("CreateSession"))
            createSession(message, false);
        else if (member == QLatin1String("BindShortcuts"))
            bindShortcuts(message);
        else if (member == QLatin1String("ListShortcuts"))
            listShortcuts(message);
        else
            fail(message, QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod"), member);
        return true;
    }
    if (m_sessions.contains(path)) {
        if (member == QLatin1String("Close"))
            closeSession(message);
        else
            fail(message, QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod"), member);
        return true;
    }
    if (path.startsWith(portalPath + QStringLiteral("/request/")) && member == QLatin1String("Close") &&
        (interface.isEmpty() || interface == requestInterface)) {
        logLine(QStringLiteral("Request.Close %1").arg(path));
        reply(message);
        return true;
    }
    fail(message, QStringLiteral("org.freedesktop.DBus.Error.UnknownObject"), path);
    return true;
}

void StandInPortal::createSession(const QDBusMessage& message, bool remoteDesktop) {
    const QVariantList args = message.arguments();
    if (message.signature() != QLatin1String("oosa{sv}")) {
        fail(message, QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs"), message.signature());
        return;
    }
    const QString handle = args.at(1).value<QDBusObjectPath>().path();
    Session session;
    session.creator = message.service();
    session.appId = args.at(2).toString();
    session.remoteDesktop = remoteDesktop;
    logLine(QStringLiteral("%1CreateSession %2 app_id '%3' from %4")
                .arg(remoteDesktop ? QStringLiteral("RemoteDesktop.") : QString(), handle, session.appId,
                     session.creator));
    m_frontends.addWatchedService(session.creator);
    m_sessions.insert(handle, session);
    reply(message, {0u, QVariantMap()});
}

void StandInPortal::bindShortcuts(const QDBusMessage& message) {
    const QVariantList args = message.arguments();
    if (message.signature() != QLatin1String("ooa(sa{sv})sa{sv}")) {
        fail(message, QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs"), message.signature());
        return;
    }
    const QString handle = args.at(1).value<QDBusObjectPath>().path();
    const QList<PortalShortcutEntry> requested = readShortcuts(args.at(2));
    QJsonArray recorded;
    for (const PortalShortcutEntry& entry : requested)
        recorded.append(QJsonObject{
            {QStringLiteral("id"), entry.id},
            {QStringLiteral("description"), stringOption(entry.properties, QStringLiteral("description"))},
            {QStringLiteral("preferred_trigger"),
             stringOption(entry.properties, QStringLiteral("preferred_trigger"))}});
    const auto session = m_sessions.find(handle);
    m_bindRequests.append(
        QJsonObject{{QStringLiteral("session"), handle},
                    {QStringLiteral("app_id"), session != m_sessions.end() ? session->appId : QString()},
                    {QStringLiteral("parent_window"), args.at(3).toString()},
                    {QStringLiteral("shortcuts"), recorded}});
    logLine(QStringLiteral("BindShortcuts %1 %2 answered %3")
                .arg(handle, QString::fromUtf8(QJsonDocument(recorded).toJson(QJsonDocument::Compact)))
                .arg(m_bindAnswer));
    if (session == m_sessions.end()) {
        reply(message, {2u, QVariantMap()});
        return;
    }
    if (m_bindAnswer != 0) {
        reply(message, {m_bindAnswer, QVariantMap()});
        return;
    }
    // A new bind replaces what the session had bound.
    session->shortcuts.clear();
    for (const PortalShortcutEntry& entry : requested) {
        const QString preferred = stringOption(entry.properties, QStringLiteral("preferred_trigger"));
        session->shortcuts << BoundShortcut{entry.id,
                                            stringOption(entry.properties, QStringLiteral("description")),
                                            m_assignedTriggers.value(entry.id, preferred)};
    }
    reply(message, {0u, QVariantMap{{QStringLiteral("shortcuts"), shortcutList(*session)}}});
}

void StandInPortal::listShortcuts(const QDBusMessage& message) {
    const QVariantList args = message.arguments();
    if (message.signature() != QLatin1String("oo")) {
        fail(message, QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs"), message.signature());
        return;
    }
    const QString handle = args.at(1).value<QDBusObjectPath>().path();
    logLine(QStringLiteral("ListShortcuts %1").arg(handle));
    const auto session = m_sessions.constFind(handle);
    if (session == m_sessions.constEnd()) {
        reply(message, {2u, QVariantMap()});
        return;
    }
    reply(message, {0u, QVariantMap{{QStringLiteral("shortcuts"), shortcutList(*session)}}});
}

void StandInPortal::closeSession(const QDBusMessage& message) {
    logLine(QStringLiteral("Session.Close %1").arg(message.path()));
    m_sessions.remove(message.path());
    reply(message);
}

void StandInPortal::properties(const QDBusMessage& message) {
    // The frontend loads the properties of the request and session objects as it makes its
    // proxies for them, the session's before the session is created: only the interfaces
    // with a version have any.
    const QVariantList args = message.arguments();
    const QString interface = args.value(0).toString();
    if (message.path() == portalPath && interface == remoteDesktopInterface) {
        // Keyboard, pointer and touchscreen, as a desktop offers; only keysyms are served.
        const QVariantMap all{{QStringLiteral("AvailableDeviceTypes"), 7u}, {QStringLiteral("version"), 2u}};
        if (message.member() == QLatin1String("GetAll") && args.size() == 1)
            reply(message, {all});
        else if (message.member() == QLatin1String("Get") && args.size() == 2 &&
                 all.contains(args.at(1).toString()))
            reply(message, {QVariant::fromValue(QDBusVariant(all.value(args.at(1).toString())))});
        else
            fail(message, QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs"),
                 QStringLiteral("no such property"));
        return;
    }
    const bool versioned = (message.path() == portalPath && interface == shortcutsInterface) ||
                           (message.path().startsWith(portalPath + QStringLiteral("/session/")) &&
                            interface == sessionInterface);
    if (message.member() == QLatin1String("GetAll") && args.size() == 1) {
        reply(message, {versioned ? QVariantMap{{QStringLiteral("version"), 1u}} : QVariantMap()});
    } else if (message.member() == QLatin1String("Get") && args.size() == 2 && versioned &&
               args.at(1).toString() == QLatin1String("version")) {
        reply(message, {QVariant::fromValue(QDBusVariant(1u))});
    } else {
        fail(message, QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs"),
             QStringLiteral("no such property"));
    }
}

void StandInPortal::control(const QDBusMessage& message) {
    const QString member = message.member();
    const QString signature = message.signature();
    const QVariantList args = message.arguments();
    if ((member == QLatin1String("Activate") || member == QLatin1String("Deactivate")) &&
        signature == QLatin1String("s")) {
        const QString signal =
            member == QLatin1String("Activate") ? QStringLiteral("Activated") : QStringLiteral("Deactivated");
        reply(message, {signalEdge(signal, args.at(0).toString())});
    } else if (member == QLatin1String("SetBindAnswer") && signature == QLatin1String("u")) {
        m_bindAnswer = args.at(0).toUInt();
        reply(message);
    } else if (member == QLatin1String("SetAssignedTrigger") && signature == QLatin1String("ss")) {
        m_assignedTriggers.insert(args.at(0).toString(), args.at(1).toString());
        reply(message);
    } else if (member == QLatin1String("ChangeTrigger") && signature == QLatin1String("ss")) {
        reply(message, {changeTrigger(args.at(0).toString(), args.at(1).toString())});
    } else if (member == QLatin1String("CloseSessions") && signature.isEmpty()) {
        reply(message, {closeSessions()});
    } else if (member == QLatin1String("BindRequests") && signature.isEmpty()) {
        reply(message, {bindRequestsJson()});
    } else if (member == QLatin1String("LiveSessions") && signature.isEmpty()) {
        reply(message, {static_cast<uint>(m_sessions.size())});
    } else if (member == QLatin1String("SessionsBinding") && signature == QLatin1String("s")) {
        reply(message, {sessionsBinding(args.at(0).toString())});
    } else if (member == QLatin1String("SetConsentAnswer") && signature == QLatin1String("u")) {
        m_consentAnswer = args.at(0).toUInt();
        reply(message);
    } else if (member == QLatin1String("ConsentRequests") && signature.isEmpty()) {
        reply(message, {m_consentRequests});
    } else if (member == QLatin1String("Keysyms") && signature.isEmpty()) {
        reply(message, {QString::fromUtf8(QJsonDocument(m_keysyms).toJson(QJsonDocument::Compact))});
    } else if (member == QLatin1String("RemoteDesktopSessions") && signature.isEmpty()) {
        uint count = 0;
        for (const Session& session : std::as_const(m_sessions))
            if (session.remoteDesktop) ++count;
        reply(message, {count});
    } else {
        fail(message, QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod"),
             QStringLiteral("%1(%2)").arg(member, signature));
    }
}

void StandInPortal::remoteDesktop(const QDBusMessage& message) {
    const QString member = message.member();
    if (member == QLatin1String("CreateSession"))
        createSession(message, true);
    else if (member == QLatin1String("SelectDevices"))
        selectDevices(message);
    else if (member == QLatin1String("Start"))
        start(message);
    else if (member == QLatin1String("NotifyKeyboardKeysym"))
        notifyKeyboardKeysym(message);
    else
        fail(message, QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod"), member);
}

void StandInPortal::selectDevices(const QDBusMessage& message) {
    const QVariantList args = message.arguments();
    if (message.signature() != QLatin1String("oosa{sv}")) {
        fail(message, QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs"), message.signature());
        return;
    }
    const QString handle = args.at(1).value<QDBusObjectPath>().path();
    const QVariantMap options = qdbus_cast<QVariantMap>(args.at(3));
    const auto session = m_sessions.find(handle);
    if (session == m_sessions.end() || !session->remoteDesktop || session->started) {
        logLine(QStringLiteral("SelectDevices %1: no such session to select for").arg(handle));
        reply(message, {2u, QVariantMap()});
        return;
    }
    session->types = uintOption(options, QStringLiteral("types"), 7u);
    session->persistMode = uintOption(options, QStringLiteral("persist_mode"), 0u);
    const QString consent = restoredConsent(options);
    session->restoredConsent = m_issuedConsents.contains(consent) ? consent : QString();
    logLine(QStringLiteral("SelectDevices %1 options %2: types %3, persist_mode %4, restoring '%5'")
                .arg(handle, QStringList(options.keys()).join(QLatin1Char(',')))
                .arg(session->types)
                .arg(session->persistMode)
                .arg(session->restoredConsent));
    reply(message, {0u, QVariantMap()});
}

void StandInPortal::start(const QDBusMessage& message) {
    const QVariantList args = message.arguments();
    if (message.signature() != QLatin1String("oossa{sv}")) {
        fail(message, QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs"), message.signature());
        return;
    }
    const QString handle = args.at(1).value<QDBusObjectPath>().path();
    const auto session = m_sessions.find(handle);
    if (session == m_sessions.end() || !session->remoteDesktop || session->started) {
        logLine(QStringLiteral("Start %1: no such session to start").arg(handle));
        reply(message, {2u, QVariantMap()});
        return;
    }
    // Restore data this desktop handed out stands for a consent already given.
    QString consent = session->restoredConsent;
    uint response = 0;
    if (consent.isEmpty()) {
        ++m_consentRequests;
        response = m_consentAnswer;
        if (response == 0) {
            consent = QStringLiteral("consent-%1").arg(++m_consentsIssued);
            m_issuedConsents << consent;
        }
    }
    logLine(QStringLiteral("Start %1: %2, answered %3")
                .arg(handle, session->restoredConsent.isEmpty() ? QStringLiteral("asked the user")
                                                                : QStringLiteral("restored ") + consent)
                .arg(response));
    if (response != 0) {
        reply(message, {response, QVariantMap()});
        return;
    }
    session->started = true;
    session->devices = session->types & 1u;
    QVariantMap results{{QStringLiteral("devices"), session->devices}};
    if (session->persistMode != 0) {
        results.insert(
            QStringLiteral("restore_data"),
            QVariant::fromValue(RestoreData{restoreVendor, restoreVersion, QDBusVariant(consent)}));
        results.insert(QStringLiteral("persist_mode"), session->persistMode);
    }
    reply(message, {0u, results});
}

void StandInPortal::notifyKeyboardKeysym(const QDBusMessage& message) {
    const QVariantList args = message.arguments();
    if (message.signature() != QLatin1String("oa{sv}iu")) {
        fail(message, QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs"), message.signature());
        return;
    }
    const QString handle = args.at(0).value<QDBusObjectPath>().path();
    const int keysym = args.at(2).toInt();
    const uint state = args.at(3).toUInt();
    const auto session = m_sessions.constFind(handle);
    if (session == m_sessions.constEnd() || !session->remoteDesktop || !session->started ||
        (session->devices & 1u) == 0) {
        fail(message, QStringLiteral("org.freedesktop.DBus.Error.AccessDenied"),
             QStringLiteral("no keyboard was granted to ") + handle);
        return;
    }
    m_keysyms.append(QJsonArray{keysym, static_cast<qint64>(state)});
    logLine(QStringLiteral("NotifyKeyboardKeysym %1 0x%2 %3").arg(handle).arg(keysym, 0, 16).arg(state));
    reply(message);
}

uint StandInPortal::signalEdge(const QString& name, const QString& id) {
    uint signalled = 0;
    const qulonglong timestamp = monotonicMilliseconds();
    // The moment of sending, in microseconds of the monotonic clock every process shares, for
    // measuring how long the signal takes to reach the program.
    const QVariantMap options{
        {QStringLiteral("x-murmurly-sent-us"),
         QVariant::fromValue(static_cast<qlonglong>(std::chrono::duration_cast<std::chrono::microseconds>(
                                                        std::chrono::steady_clock::now().time_since_epoch())
                                                        .count()))}};
    for (auto it = m_sessions.cbegin(); it != m_sessions.cend(); ++it) {
        if (!binds(*it, id)) continue;
        QDBusMessage signal = QDBusMessage::createSignal(portalPath, shortcutsInterface, name);
        signal << QVariant::fromValue(QDBusObjectPath(it.key())) << id << timestamp << options;
        if (m_bus.send(signal)) ++signalled;
    }
    logLine(QStringLiteral("%1 %2 to %3 session(s)").arg(name, id).arg(signalled));
    return signalled;
}

uint StandInPortal::changeTrigger(const QString& id, const QString& trigger) {
    uint changed = 0;
    for (auto it = m_sessions.begin(); it != m_sessions.end(); ++it) {
        if (!binds(*it, id)) continue;
        for (BoundShortcut& shortcut : it->shortcuts)
            if (shortcut.id == id) shortcut.triggerDescription = trigger;
        QDBusMessage signal =
            QDBusMessage::createSignal(portalPath, shortcutsInterface, QStringLiteral("ShortcutsChanged"));
        signal << QVariant::fromValue(QDBusObjectPath(it.key())) << shortcutList(*it);
        if (m_bus.send(signal)) ++changed;
    }
    logLine(QStringLiteral("ChangeTrigger %1 to '%2' in %3 session(s)").arg(id, trigger).arg(changed));
    return changed;
}

uint StandInPortal::closeSessions() {
    uint closed = 0;
    for (auto it = m_sessions.cbegin(); it != m_sessions.cend(); ++it)
        if (m_bus.send(QDBusMessage::createSignal(it.key(), sessionInterface, QStringLiteral("Closed"))))
            ++closed;
    m_sessions.clear();
    logLine(QStringLiteral("CloseSessions: %1 closed").arg(closed));
    return closed;
}

QString StandInPortal::bindRequestsJson() const {
    return QString::fromUtf8(QJsonDocument(m_bindRequests).toJson(QJsonDocument::Compact));
}

uint StandInPortal::sessionsBinding(const QString& id) const {
    uint count = 0;
    for (const Session& session : m_sessions)
        if (binds(session, id)) ++count;
    return count;
}

void StandInPortal::forgetSessionsOf(const QString& frontend) {
    // A frontend that left cannot close its sessions any more; a desktop drops them.
    qsizetype forgotten = 0;
    for (auto it = m_sessions.begin(); it != m_sessions.end();) {
        if (it->creator == frontend) {
            it = m_sessions.erase(it);
            ++forgotten;
        } else {
            ++it;
        }
    }
    m_frontends.removeWatchedService(frontend);
    logLine(QStringLiteral("frontend %1 left: %2 session(s) forgotten").arg(frontend).arg(forgotten));
}

bool StandInPortal::binds(const Session& session, const QString& id) const {
    for (const BoundShortcut& shortcut : session.shortcuts)
        if (shortcut.id == id) return true;
    return false;
}

QVariant StandInPortal::shortcutList(const Session& session) const {
    QList<PortalShortcutEntry> list;
    for (const BoundShortcut& shortcut : session.shortcuts)
        list << PortalShortcutEntry{shortcut.id,
                                    {{QStringLiteral("description"), shortcut.description},
                                     {QStringLiteral("trigger_description"), shortcut.triggerDescription}}};
    return QVariant::fromValue(list);
}

void StandInPortal::reply(const QDBusMessage& message, const QVariantList& arguments) {
    if (!m_bus.send(message.createReply(arguments))) logLine(QStringLiteral("a reply could not be sent"));
}

void StandInPortal::fail(const QDBusMessage& message, const QString& error, const QString& text) {
    logLine(QStringLiteral("refused %1.%2 at %3: %4")
                .arg(message.interface(), message.member(), message.path(), text));
    m_bus.send(message.createErrorReply(error, text));
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    qDBusRegisterMetaType<PortalShortcutEntry>();
    qDBusRegisterMetaType<QList<PortalShortcutEntry>>();
    qDBusRegisterMetaType<RestoreData>();

    murmurly::testing::StandInBusService service(logLine);
    if (!service.isConnected()) return 1;
    StandInPortal portal(service.bus());
    return service.serve(portal,
                         {{portalPath, QDBusConnection::SubPath}, {controlPath, QDBusConnection::SingleNode}},
                         serviceName);
}
