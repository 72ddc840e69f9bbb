// The private desktop portal as a program sees it: Debian's xdg-desktop-portal on a private bus,
// its global shortcuts and remote desktop served by the stand-in for the desktop. A bare QtDBus client talks
// to the frontend exactly as on a desktop (requests answered by a Response signal at a path it can predict
// from its handle token), while the test drives the desktop's side through the fixture.
#include "PrivateDesktopPortal.h"
#include "PrivateSessionBus.h"
#include "WaitUntil.h"
#include "app/PortalShortcutEntry.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QDBusVariant>
#include <QObject>
#include <QUuid>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <memory>
#include <optional>
#include <ostream>

using murmurly::PortalShortcutEntry;
using namespace murmurly::testing;
using namespace std::chrono_literals;

// Failure messages show text, not UTF-16 code units.
void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text.toStdString() << '"';
}

namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString shortcutsInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString remoteDesktopInterface = QStringLiteral("org.freedesktop.portal.RemoteDesktop");
// X keysyms and key states of the paste chord.
constexpr int controlLeft = 0xffe3;
constexpr int letterV = 0x76;
constexpr uint pressed = 1;
constexpr uint released = 0;
const QString dictate = QStringLiteral("dictate");
constexpr int callLimitMilliseconds = 10000;

QVariant plain(const QVariant& value) {
    return value.canConvert<QDBusVariant>() ? value.value<QDBusVariant>().variant() : value;
}

// The shortcuts of a bind's answer or of ShortcutsChanged, by id: their trigger descriptions.
QMap<QString, QString> triggersOf(const QVariant& list) {
    QMap<QString, QString> triggers;
    const QVariant value = plain(list);
    if (!value.canConvert<QDBusArgument>()) return triggers;
    QList<PortalShortcutEntry> entries;
    value.value<QDBusArgument>() >> entries;
    for (const PortalShortcutEntry& entry : entries)
        triggers.insert(entry.id,
                        plain(entry.properties.value(QStringLiteral("trigger_description"))).toString());
    return triggers;
}

// A program using org.freedesktop.portal.GlobalShortcuts with nothing but QtDBus, on a connection
// of its own.
class PortalClient : public QObject {
    Q_OBJECT

public:
    struct Response {
        uint code = 99;
        QVariantMap results;
    };

    explicit PortalClient(const QString& busAddress)
        : m_bus(QDBusConnection::connectToBus(busAddress, QStringLiteral("portal-test-client"))) {
        qDBusRegisterMetaType<PortalShortcutEntry>();
        qDBusRegisterMetaType<QList<PortalShortcutEntry>>();
        for (const char* name : {"Activated", "Deactivated", "ShortcutsChanged"})
            m_bus.connect(portalService, portalPath, shortcutsInterface, QString::fromLatin1(name), this,
                          SLOT(shortcutSignal(QDBusMessage)));
    }
    ~PortalClient() override { QDBusConnection::disconnectFromBus(QStringLiteral("portal-test-client")); }

    bool isConnected() const { return m_bus.isConnected(); }
    QDBusConnection& bus() { return m_bus; }

    // The frontend's object path for a request or session of this client with `token`.
    QString pathFor(const QString& kind, const QString& token) const {
        QString sender = m_bus.baseService().mid(1);
        sender.replace(QLatin1Char('.'), QLatin1Char('_'));
        return portalPath + QLatin1Char('/') + kind + QLatin1Char('/') + sender + QLatin1Char('/') + token;
    }

    // Calls `method` with `arguments` and options carrying a fresh handle token, after subscribing
    // to the Response at the path that token gives, and waits for the Response.
    std::optional<Response> request(const QString& method, QVariantList arguments, QVariantMap options = {},
                                    const QString& interface = shortcutsInterface) {
        const QString token = QStringLiteral("murmurly%1").arg(++m_tokens);
        const QString requestPath = pathFor(QStringLiteral("request"), token);
        if (!m_bus.connect(portalService, requestPath, QStringLiteral("org.freedesktop.portal.Request"),
                           QStringLiteral("Response"), this, SLOT(response(QDBusMessage)))) {
            ADD_FAILURE() << "cannot subscribe to " << requestPath.toStdString();
            return std::nullopt;
        }
        options.insert(QStringLiteral("handle_token"), token);
        arguments << options;
        QDBusMessage call = QDBusMessage::createMethodCall(portalService, portalPath, interface, method);
        call.setArguments(arguments);
        const QDBusReply<QDBusObjectPath> handle = m_bus.call(call, QDBus::Block, callLimitMilliseconds);
        std::optional<Response> answer;
        if (!handle.isValid())
            ADD_FAILURE() << method.toStdString() << " failed: " << handle.error().message().toStdString();
        else if (handle.value().path() != requestPath)
            ADD_FAILURE() << "request at " << handle.value().path().toStdString() << ", not "
                          << requestPath.toStdString();
        else if (!waitUntil([&] { return m_responses.contains(requestPath); }, 30s))
            ADD_FAILURE() << "no Response to " << method.toStdString();
        else
            answer = m_responses.take(requestPath);
        m_bus.disconnect(portalService, requestPath, QStringLiteral("org.freedesktop.portal.Request"),
                         QStringLiteral("Response"), this, SLOT(response(QDBusMessage)));
        return answer;
    }

    // A new session, watched for Closed; its handle.
    std::optional<QString> createSession(const QString& interface = shortcutsInterface) {
        const QString token = QStringLiteral("session%1").arg(++m_tokens);
        const QString expected = pathFor(QStringLiteral("session"), token);
        // Subscribed before the session exists: the desktop may end it at any time after.
        m_bus.connect(portalService, expected, QStringLiteral("org.freedesktop.portal.Session"),
                      QStringLiteral("Closed"), this, SLOT(sessionClosed(QDBusMessage)));
        const auto answer = request(QStringLiteral("CreateSession"), {},
                                    {{QStringLiteral("session_handle_token"), token}}, interface);
        if (!answer || answer->code != 0) return std::nullopt;
        const QVariant handle = plain(answer->results.value(QStringLiteral("session_handle")));
        const QString path =
            handle.canConvert<QDBusObjectPath>() ? handle.value<QDBusObjectPath>().path() : handle.toString();
        EXPECT_EQ(path, expected);
        return path;
    }

    std::optional<Response> bind(const QString& session, const QList<PortalShortcutEntry>& shortcuts) {
        return request(QStringLiteral("BindShortcuts"), {QVariant::fromValue(QDBusObjectPath(session)),
                                                         QVariant::fromValue(shortcuts), QString()});
    }

    // A remote-desktop session with the keyboard selected under `options` (types, persist_mode,
    // restore_token), started; the Start's response.
    std::optional<Response> startRemoteDesktop(QString* session, const QVariantMap& options) {
        const auto created = createSession(remoteDesktopInterface);
        if (!created) return std::nullopt;
        *session = *created;
        const auto selected =
            request(QStringLiteral("SelectDevices"), {QVariant::fromValue(QDBusObjectPath(*session))},
                    options, remoteDesktopInterface);
        if (!selected || selected->code != 0) {
            ADD_FAILURE() << "SelectDevices was not answered with 0";
            return std::nullopt;
        }
        return request(QStringLiteral("Start"), {QVariant::fromValue(QDBusObjectPath(*session)), QString()},
                       {}, remoteDesktopInterface);
    }

    // NotifyKeyboardKeysym; the frontend's error, empty when it took the key.
    QString notifyKeysym(const QString& session, int keysym, uint state) {
        QDBusMessage call = QDBusMessage::createMethodCall(portalService, portalPath, remoteDesktopInterface,
                                                           QStringLiteral("NotifyKeyboardKeysym"));
        call << QVariant::fromValue(QDBusObjectPath(session)) << QVariantMap() << keysym << state;
        const QDBusMessage reply = m_bus.call(call, QDBus::Block, callLimitMilliseconds);
        if (reply.type() == QDBusMessage::ReplyMessage) return {};
        return reply.errorName() + QStringLiteral(": ") + reply.errorMessage();
    }

    bool closeSession(const QString& session) {
        const QDBusMessage call = QDBusMessage::createMethodCall(
            portalService, session, QStringLiteral("org.freedesktop.portal.Session"),
            QStringLiteral("Close"));
        return m_bus.call(call, QDBus::Block, callLimitMilliseconds).type() == QDBusMessage::ReplyMessage;
    }

    // Activated, Deactivated and ShortcutsChanged as they came, and the sessions the frontend
    // said were closed.
    QList<QDBusMessage> shortcutSignals;
    QStringList closedSessions;

    // The shortcut signals named `name`.
    QList<QDBusMessage> signalsNamed(const QString& name) const {
        QList<QDBusMessage> named;
        for (const QDBusMessage& message : shortcutSignals)
            if (message.member() == name) named << message;
        return named;
    }

private slots:
    void response(const QDBusMessage& message) {
        const QVariantList args = message.arguments();
        if (args.size() != 2) return;
        m_responses.insert(message.path(),
                           Response{args.at(0).toUInt(), qdbus_cast<QVariantMap>(args.at(1))});
    }
    void shortcutSignal(const QDBusMessage& message) { shortcutSignals << message; }
    void sessionClosed(const QDBusMessage& message) { closedSessions << message.path(); }

private:
    QDBusConnection m_bus;
    int m_tokens = 0;
    QMap<QString, Response> m_responses; // by request path
};

// Whether process `pid` is gone (ended and reaped).
bool isGone(qint64 pid) {
    return ::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH;
}

PortalShortcutEntry shortcut(const QString& id, const QString& description, const QString& preferredTrigger) {
    QVariantMap properties{{QStringLiteral("description"), description}};
    if (!preferredTrigger.isEmpty()) properties.insert(QStringLiteral("preferred_trigger"), preferredTrigger);
    return {id, properties};
}

class PrivateDesktopPortalTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(bus.isRunning()) << bus.error().toStdString();
        portal.emplace(bus.address());
        ASSERT_TRUE(portal->isRunning()) << portal->error().toStdString();
        client = std::make_unique<PortalClient>(bus.address());
        ASSERT_TRUE(client->isConnected());
    }

    void TearDown() override {
        if (HasFailure() && portal) std::printf("%s\n", qPrintable(portal->log()));
    }

    // A session with "dictate" bound, preferring F9.
    std::optional<QString> boundSession() {
        const auto session = client->createSession();
        if (!session) return std::nullopt;
        const auto answer =
            client->bind(*session, {shortcut(dictate, QStringLiteral("Dictate"), QStringLiteral("F9"))});
        if (!answer || answer->code != 0) return std::nullopt;
        return session;
    }

    // The keyboard with the consent kept until revoked, as Murmurly asks for it.
    static QVariantMap keyboardKeptUntilRevoked() {
        return {{QStringLiteral("types"), 1u}, {QStringLiteral("persist_mode"), 2u}};
    }

    PrivateSessionBus bus;
    std::optional<PrivateDesktopPortal> portal;
    std::unique_ptr<PortalClient> client;
};

} // namespace

TEST_F(PrivateDesktopPortalTest, TheFrontendServesGlobalShortcutsThroughTheStandIn) {
    QDBusMessage get = QDBusMessage::createMethodCall(
        portalService, portalPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get << shortcutsInterface << QStringLiteral("version");
    const QDBusReply<QDBusVariant> version = client->bus().call(get, QDBus::Block, callLimitMilliseconds);
    ASSERT_TRUE(version.isValid()) << version.error().message().toStdString();
    EXPECT_EQ(version.value().variant().toUInt(), 1u);
    EXPECT_EQ(portal->liveSessions(), 0u);

    const auto session = client->createSession();
    ASSERT_TRUE(session);
    EXPECT_EQ(portal->liveSessions(), 1u) << "the frontend created the session on the desktop's side";
    EXPECT_EQ(portal->sessionsBinding(dictate), 0u);
    const auto requests = portal->bindRequests();
    ASSERT_TRUE(requests);
    EXPECT_TRUE(requests->isEmpty());
}

TEST_F(PrivateDesktopPortalTest, ABindIsRecordedWithItsPreferredTriggerAndAnsweredWithIt) {
    const auto session = client->createSession();
    ASSERT_TRUE(session);
    const auto answer =
        client->bind(*session, {shortcut(dictate, QStringLiteral("Dictate"), QStringLiteral("F9")),
                                shortcut(QStringLiteral("cancel"), QStringLiteral("Cancel"), {})});
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, 0u);
    const QMap<QString, QString> triggers = triggersOf(answer->results.value(QStringLiteral("shortcuts")));
    EXPECT_EQ(triggers.value(dictate), QStringLiteral("F9"));
    ASSERT_TRUE(triggers.contains(QStringLiteral("cancel")));
    EXPECT_EQ(triggers.value(QStringLiteral("cancel")), QString()) << "nothing preferred, nothing assigned";

    const auto requests = portal->bindRequests();
    ASSERT_TRUE(requests);
    ASSERT_EQ(requests->size(), 1);
    EXPECT_EQ(requests->at(0).session, *session);
    ASSERT_EQ(requests->at(0).shortcuts.size(), 2);
    EXPECT_EQ(requests->at(0).shortcuts.at(0).id, dictate);
    EXPECT_EQ(requests->at(0).shortcuts.at(0).description, QStringLiteral("Dictate"));
    EXPECT_EQ(requests->at(0).shortcuts.at(0).preferredTrigger, QStringLiteral("F9"));
    EXPECT_EQ(requests->at(0).shortcuts.at(1).id, QStringLiteral("cancel"));
    EXPECT_EQ(requests->at(0).shortcuts.at(1).preferredTrigger, QString());
    EXPECT_EQ(portal->sessionsBinding(dictate), 1u);
    EXPECT_EQ(portal->sessionsBinding(QStringLiteral("cancel")), 1u);
}

TEST_F(PrivateDesktopPortalTest, ATriggerTheDesktopAssignsIsAnsweredInsteadOfThePreferredOne) {
    ASSERT_TRUE(portal->setAssignedTrigger(dictate, QStringLiteral("Ctrl+Alt+D")));
    const auto session = client->createSession();
    ASSERT_TRUE(session);
    const auto answer =
        client->bind(*session, {shortcut(dictate, QStringLiteral("Dictate"), QStringLiteral("F9"))});
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, 0u);
    EXPECT_EQ(triggersOf(answer->results.value(QStringLiteral("shortcuts"))).value(dictate),
              QStringLiteral("Ctrl+Alt+D"));
    const auto requests = portal->bindRequests();
    ASSERT_TRUE(requests);
    ASSERT_EQ(requests->size(), 1);
    EXPECT_EQ(requests->at(0).shortcuts.at(0).preferredTrigger, QStringLiteral("F9")) << "what was asked for";
}

TEST_F(PrivateDesktopPortalTest, ABindAgainInTheSameSessionReachesTheDesktopAndReplacesWhatWasBound) {
    const auto session = boundSession();
    ASSERT_TRUE(session);
    // The frontend passes every bind on; what a desktop makes of a second one is its own choice,
    // and the stand-in's is to take the new list.
    const auto again = client->bind(
        *session, {shortcut(QStringLiteral("cancel"), QStringLiteral("Cancel"), QStringLiteral("Escape"))});
    ASSERT_TRUE(again);
    EXPECT_EQ(again->code, 0u);
    EXPECT_EQ(triggersOf(again->results.value(QStringLiteral("shortcuts"))).keys(),
              QStringList{QStringLiteral("cancel")});
    const auto requests = portal->bindRequests();
    ASSERT_TRUE(requests);
    ASSERT_EQ(requests->size(), 2);
    EXPECT_EQ(requests->at(1).session, *session);
    EXPECT_EQ(portal->sessionsBinding(dictate), 0u);
    EXPECT_EQ(portal->sessionsBinding(QStringLiteral("cancel")), 1u);
}

TEST_F(PrivateDesktopPortalTest, ListingAnswersWhatTheSessionBound) {
    ASSERT_TRUE(portal->setAssignedTrigger(dictate, QStringLiteral("Ctrl+Alt+D")));
    const auto session = boundSession();
    ASSERT_TRUE(session);
    const auto listed =
        client->request(QStringLiteral("ListShortcuts"), {QVariant::fromValue(QDBusObjectPath(*session))});
    ASSERT_TRUE(listed);
    EXPECT_EQ(listed->code, 0u);
    const QMap<QString, QString> triggers = triggersOf(listed->results.value(QStringLiteral("shortcuts")));
    EXPECT_EQ(triggers.keys(), QStringList{dictate});
    EXPECT_EQ(triggers.value(dictate), QStringLiteral("Ctrl+Alt+D"));
}

TEST_F(PrivateDesktopPortalTest, ActivationReachesTheClientAsTheFrontendsSignal) {
    const auto session = boundSession();
    ASSERT_TRUE(session);
    EXPECT_EQ(portal->activate(QStringLiteral("unbound")), 0u);
    ASSERT_EQ(portal->activate(dictate), 1u);
    ASSERT_TRUE(waitUntil([&] { return !client->signalsNamed(QStringLiteral("Activated")).isEmpty(); }, 30s));
    const QList<QDBusMessage> activated = client->signalsNamed(QStringLiteral("Activated"));
    ASSERT_EQ(activated.size(), 1);
    EXPECT_EQ(activated.at(0).signature(), QStringLiteral("osta{sv}"));
    const QVariantList args = activated.at(0).arguments();
    EXPECT_EQ(args.at(0).value<QDBusObjectPath>().path(), *session);
    EXPECT_EQ(args.at(1).toString(), dictate);
    EXPECT_TRUE(client->signalsNamed(QStringLiteral("Deactivated")).isEmpty());
}

TEST_F(PrivateDesktopPortalTest, DeactivationReachesTheClientAsTheFrontendsSignalAfterTheActivation) {
    const auto session = boundSession();
    ASSERT_TRUE(session);
    ASSERT_EQ(portal->activate(dictate), 1u);
    ASSERT_EQ(portal->deactivate(dictate), 1u);
    ASSERT_TRUE(waitUntil([&] { return client->shortcutSignals.size() == 2; }, 30s));
    const QDBusMessage& pressed = client->shortcutSignals.at(0);
    const QDBusMessage& released = client->shortcutSignals.at(1);
    EXPECT_EQ(pressed.member(), QStringLiteral("Activated"));
    ASSERT_EQ(released.member(), QStringLiteral("Deactivated"));
    EXPECT_EQ(released.signature(), QStringLiteral("osta{sv}"));
    EXPECT_EQ(released.arguments().at(0).value<QDBusObjectPath>().path(), *session);
    EXPECT_EQ(released.arguments().at(1).toString(), dictate);
    EXPECT_LE(pressed.arguments().at(2).toULongLong(), released.arguments().at(2).toULongLong())
        << "the timestamps come from one monotonic clock";
}

TEST_F(PrivateDesktopPortalTest, EverySessionThatBoundTheShortcutIsSignalled) {
    const auto first = boundSession();
    const auto second = boundSession();
    ASSERT_TRUE(first && second);
    ASSERT_EQ(portal->activate(dictate), 2u);
    ASSERT_TRUE(
        waitUntil([&] { return client->signalsNamed(QStringLiteral("Activated")).size() == 2; }, 30s));
    QStringList sessions;
    for (const QDBusMessage& message : client->signalsNamed(QStringLiteral("Activated")))
        sessions << message.arguments().at(0).value<QDBusObjectPath>().path();
    sessions.sort();
    QStringList expected{*first, *second};
    expected.sort();
    EXPECT_EQ(sessions, expected);
}

TEST_F(PrivateDesktopPortalTest, ADismissedBindIsAnsweredWithOneAndBindsNothing) {
    ASSERT_TRUE(portal->setBindAnswer(1));
    const auto session = client->createSession();
    ASSERT_TRUE(session);
    const auto answer =
        client->bind(*session, {shortcut(dictate, QStringLiteral("Dictate"), QStringLiteral("F9"))});
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, 1u);
    EXPECT_FALSE(answer->results.contains(QStringLiteral("shortcuts")));
    EXPECT_EQ(portal->sessionsBinding(dictate), 0u);
    EXPECT_EQ(portal->activate(dictate), 0u);
    const auto requests = portal->bindRequests();
    ASSERT_TRUE(requests);
    EXPECT_EQ(requests->size(), 1) << "a dismissed bind was still asked for";

    ASSERT_TRUE(portal->setBindAnswer(2));
    const auto failed =
        client->bind(*session, {shortcut(dictate, QStringLiteral("Dictate"), QStringLiteral("F9"))});
    ASSERT_TRUE(failed);
    EXPECT_EQ(failed->code, 2u);
}

TEST_F(PrivateDesktopPortalTest, ClosingTheSessionsEndsTheClientsSessionWithTheFrontendsSignal) {
    const auto session = boundSession();
    ASSERT_TRUE(session);
    ASSERT_EQ(portal->closeSessions(), 1u);
    ASSERT_TRUE(waitUntil([&] { return !client->closedSessions.isEmpty(); }, 30s));
    EXPECT_EQ(client->closedSessions, QStringList{*session});
    EXPECT_EQ(portal->liveSessions(), 0u);
    EXPECT_EQ(portal->activate(dictate), 0u);
}

TEST_F(PrivateDesktopPortalTest, ASessionTheClientClosesIsNoLongerLive) {
    const auto kept = boundSession();
    const auto closed = boundSession();
    ASSERT_TRUE(kept && closed);
    ASSERT_EQ(portal->sessionsBinding(dictate), 2u);
    ASSERT_TRUE(client->closeSession(*closed));
    EXPECT_TRUE(waitUntil([&] { return portal->sessionsBinding(dictate) == 1u; }, 30s));
    EXPECT_EQ(portal->liveSessions(), 1u);
}

TEST_F(PrivateDesktopPortalTest, AReassignedTriggerReachesTheClientAsShortcutsChanged) {
    const auto session = boundSession();
    ASSERT_TRUE(session);
    ASSERT_EQ(portal->changeTrigger(dictate, QStringLiteral("Shift+F12")), 1u);
    ASSERT_TRUE(
        waitUntil([&] { return !client->signalsNamed(QStringLiteral("ShortcutsChanged")).isEmpty(); }, 30s));
    const QDBusMessage changed = client->signalsNamed(QStringLiteral("ShortcutsChanged")).at(0);
    EXPECT_EQ(changed.arguments().at(0).value<QDBusObjectPath>().path(), *session);
    EXPECT_EQ(triggersOf(changed.arguments().at(1)).value(dictate), QStringLiteral("Shift+F12"));
    EXPECT_EQ(portal->changeTrigger(QStringLiteral("unbound"), QStringLiteral("F1")), 0u);
}

TEST_F(PrivateDesktopPortalTest, ARestartedFrontendServesNewSessionsAndTheOldOnesAreGone) {
    const auto old = boundSession();
    ASSERT_TRUE(old);
    const qint64 before = portal->frontendProcessId();
    ASSERT_TRUE(portal->restartFrontend()) << portal->error().toStdString();
    EXPECT_NE(portal->frontendProcessId(), before);
    EXPECT_EQ(portal->liveSessions(), 0u);
    EXPECT_EQ(portal->activate(dictate), 0u);

    const auto renewed = boundSession();
    ASSERT_TRUE(renewed);
    ASSERT_EQ(portal->activate(dictate), 1u);
    ASSERT_TRUE(waitUntil([&] { return !client->signalsNamed(QStringLiteral("Activated")).isEmpty(); }, 30s));
    EXPECT_EQ(client->signalsNamed(QStringLiteral("Activated"))
                  .at(0)
                  .arguments()
                  .at(0)
                  .value<QDBusObjectPath>()
                  .path(),
              *renewed);
    // Whatever the old frontend sent came before anything of the new one.
    EXPECT_TRUE(client->closedSessions.isEmpty()) << "an ended frontend says nothing";
    const auto requests = portal->bindRequests();
    ASSERT_TRUE(requests);
    EXPECT_EQ(requests->size(), 2) << "kept across the restart";
}

TEST_F(PrivateDesktopPortalTest, AStandInThatEndedAnswersNothingAndTheErrorSaysSo) {
    const auto session = boundSession();
    ASSERT_TRUE(session);
    ASSERT_GT(portal->standInProcessId(), 0);
    ASSERT_EQ(::kill(static_cast<pid_t>(portal->standInProcessId()), SIGKILL), 0);
    ASSERT_TRUE(waitUntil([&] { return !portal->isRunning(); }, 30s));
    EXPECT_EQ(portal->activate(dictate), std::nullopt);
    EXPECT_FALSE(portal->setBindAnswer(1));
    EXPECT_FALSE(portal->bindRequests().has_value());
    EXPECT_TRUE(portal->error().startsWith(QStringLiteral("the stand-in for the desktop has ended")))
        << portal->error().toStdString();
}

TEST_F(PrivateDesktopPortalTest, NothingItStartedOutlivesIt) {
    ASSERT_TRUE(boundSession());
    const qint64 frontend = portal->frontendProcessId();
    const qint64 standIn = portal->standInProcessId();
    ASSERT_GT(frontend, 0);
    ASSERT_GT(standIn, 0);
    ASSERT_TRUE(portal->restartFrontend()) << portal->error().toStdString();
    EXPECT_TRUE(isGone(frontend)) << "the frontend before the restart";
    const qint64 restarted = portal->frontendProcessId();
    portal.reset();
    EXPECT_TRUE(isGone(restarted));
    EXPECT_TRUE(isGone(standIn));
}

TEST_F(PrivateDesktopPortalTest, ARemoteDesktopStartAsksTheUserOnceAndGrantsTheKeyboard) {
    QDBusMessage get = QDBusMessage::createMethodCall(
        portalService, portalPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get << remoteDesktopInterface << QStringLiteral("AvailableDeviceTypes");
    const QDBusReply<QDBusVariant> types = client->bus().call(get, QDBus::Block, callLimitMilliseconds);
    ASSERT_TRUE(types.isValid()) << types.error().message().toStdString();
    EXPECT_EQ(types.value().variant().toUInt(), 7u) << "what the desktop's side offers";
    EXPECT_EQ(portal->consentRequests(), 0u);

    QString session;
    const auto started = client->startRemoteDesktop(&session, keyboardKeptUntilRevoked());
    ASSERT_TRUE(started);
    EXPECT_EQ(started->code, 0u);
    EXPECT_EQ(plain(started->results.value(QStringLiteral("devices"))).toUInt(), 1u);
    EXPECT_EQ(portal->consentRequests(), 1u);
    EXPECT_EQ(portal->remoteDesktopSessions(), 1u);
    EXPECT_EQ(portal->liveSessions(), 1u);
    EXPECT_EQ(portal->sessionsBinding(dictate), 0u) << "not a shortcuts session";
}

TEST_F(PrivateDesktopPortalTest, KeysymsReachTheDesktopInTheOrderSent) {
    QString session;
    const auto started = client->startRemoteDesktop(&session, keyboardKeptUntilRevoked());
    ASSERT_TRUE(started);
    ASSERT_EQ(started->code, 0u);
    const QList<QPair<int, uint>> chord{
        {controlLeft, pressed}, {letterV, pressed}, {letterV, released}, {controlLeft, released}};
    for (const auto& [keysym, state] : chord)
        EXPECT_EQ(client->notifyKeysym(session, keysym, state), QString());
    // The frontend answers before it passes the key on.
    ASSERT_TRUE(
        waitUntil([&] { return portal->keysyms().value_or(QList<QPair<int, uint>>()).size() >= 4; }, 30s));
    EXPECT_EQ(portal->keysyms(), chord);
}

TEST_F(PrivateDesktopPortalTest, ThisFrontendHandsOutNoRestoreTokenSoEveryStartAsksTheUser) {
    // xdg-desktop-portal 1.16 serves RemoteDesktop version 1: SelectDevices passes on only
    // "types", so the desktop never hears of persist_mode or a token and cannot keep a consent.
    QDBusMessage get = QDBusMessage::createMethodCall(
        portalService, portalPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get << remoteDesktopInterface << QStringLiteral("version");
    const QDBusReply<QDBusVariant> version = client->bus().call(get, QDBus::Block, callLimitMilliseconds);
    ASSERT_TRUE(version.isValid()) << version.error().message().toStdString();
    ASSERT_EQ(version.value().variant().toUInt(), 1u) << "a frontend that may keep consents; test its tokens";

    QString first;
    const auto granted = client->startRemoteDesktop(&first, keyboardKeptUntilRevoked());
    ASSERT_TRUE(granted);
    ASSERT_EQ(granted->code, 0u);
    EXPECT_FALSE(granted->results.contains(QStringLiteral("restore_token")));
    EXPECT_FALSE(granted->results.contains(QStringLiteral("restore_data")));
    EXPECT_EQ(portal->consentRequests(), 1u);

    // A token from an earlier run is taken without complaint, and changes nothing.
    QVariantMap restoring = keyboardKeptUntilRevoked();
    restoring.insert(QStringLiteral("restore_token"), QUuid::createUuid().toString(QUuid::WithoutBraces));
    QString second;
    const auto again = client->startRemoteDesktop(&second, restoring);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->code, 0u);
    EXPECT_NE(second, first);
    EXPECT_EQ(portal->consentRequests(), 2u) << "the user was asked again";
    EXPECT_EQ(portal->remoteDesktopSessions(), 2u);
}

TEST_F(PrivateDesktopPortalTest, ADismissedConsentAnswersOneAndNoKeysAreTaken) {
    ASSERT_TRUE(portal->setConsentAnswer(1));
    QString session;
    const auto dismissed = client->startRemoteDesktop(&session, keyboardKeptUntilRevoked());
    ASSERT_TRUE(dismissed);
    EXPECT_EQ(dismissed->code, 1u);
    EXPECT_FALSE(dismissed->results.contains(QStringLiteral("devices")));
    EXPECT_EQ(portal->consentRequests(), 1u);
    EXPECT_NE(client->notifyKeysym(session, controlLeft, pressed), QString());
    EXPECT_NE(client->notifyKeysym(session, letterV, pressed), QString());
    // The frontend ends a session whose Start failed, on the desktop's side too.
    EXPECT_TRUE(waitUntil([&] { return portal->remoteDesktopSessions() == 0u; }, 30s));
    const auto keys = portal->keysyms();
    ASSERT_TRUE(keys);
    EXPECT_TRUE(keys->isEmpty());
}

// The desktop's side alone, called as a newer frontend would: restore data it handed out for a
// granted consent lets a later session start without asking the user.
TEST_F(PrivateDesktopPortalTest, TheDesktopsRestoreDataStartsALaterSessionWithoutAskingAgain) {
    const QString impl = QStringLiteral("org.freedesktop.impl.portal.RemoteDesktop");
    int calls = 0;
    const auto call = [&](const QString& method, QVariantList arguments) {
        const QString request = portalPath + QStringLiteral("/request/direct/r%1").arg(++calls);
        arguments.prepend(QVariant::fromValue(QDBusObjectPath(request)));
        QDBusMessage message =
            QDBusMessage::createMethodCall(PrivateDesktopPortal::backendService, portalPath, impl, method);
        message.setArguments(arguments);
        return client->bus().call(message, QDBus::Block, callLimitMilliseconds);
    };
    const auto startSession = [&](const QString& session, const QVariantMap& options) {
        const QDBusObjectPath path(session);
        const QString app = QStringLiteral("com.qv.murmurly");
        EXPECT_EQ(call(QStringLiteral("CreateSession"), {QVariant::fromValue(path), app, QVariantMap()})
                      .arguments()
                      .value(0),
                  QVariant(0u));
        EXPECT_EQ(call(QStringLiteral("SelectDevices"), {QVariant::fromValue(path), app, options})
                      .arguments()
                      .value(0),
                  QVariant(0u));
        return call(QStringLiteral("Start"), {QVariant::fromValue(path), app, QString(), QVariantMap()});
    };

    const QDBusMessage first =
        startSession(portalPath + QStringLiteral("/session/direct/s1"), keyboardKeptUntilRevoked());
    ASSERT_EQ(first.signature(), QStringLiteral("ua{sv}")) << first.errorMessage().toStdString();
    ASSERT_EQ(first.arguments().at(0).toUInt(), 0u);
    const QVariantMap results = qdbus_cast<QVariantMap>(first.arguments().at(1));
    const QVariant restoreData = plain(results.value(QStringLiteral("restore_data")));
    ASSERT_TRUE(restoreData.canConvert<QDBusArgument>());
    EXPECT_EQ(restoreData.value<QDBusArgument>().currentSignature(), QStringLiteral("(suv)"));
    EXPECT_EQ(plain(results.value(QStringLiteral("persist_mode"))).toUInt(), 2u);
    EXPECT_EQ(portal->consentRequests(), 1u);

    QVariantMap restoring = keyboardKeptUntilRevoked();
    restoring.insert(QStringLiteral("restore_data"), restoreData);
    const QDBusMessage second = startSession(portalPath + QStringLiteral("/session/direct/s2"), restoring);
    ASSERT_EQ(second.signature(), QStringLiteral("ua{sv}")) << second.errorMessage().toStdString();
    EXPECT_EQ(second.arguments().at(0).toUInt(), 0u);
    EXPECT_EQ(portal->consentRequests(), 1u) << "restored, not asked";

    // Restore data the desktop never issued is no consent.
    QVariantMap unknown = keyboardKeptUntilRevoked();
    unknown.insert(QStringLiteral("restore_data"),
                   QVariant::fromValue(QDBusVariant(QStringLiteral("forged"))));
    const QDBusMessage third = startSession(portalPath + QStringLiteral("/session/direct/s3"), unknown);
    ASSERT_EQ(third.signature(), QStringLiteral("ua{sv}")) << third.errorMessage().toStdString();
    EXPECT_EQ(portal->consentRequests(), 2u);
}

#include "PrivateDesktopPortalTest.moc"
