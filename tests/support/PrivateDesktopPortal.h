#pragma once

#include <QDBusConnection>
#include <QList>
#include <QPair>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <optional>

namespace murmurly::testing {

// The desktop portal of a test's own: Debian's real xdg-desktop-portal frontend on the private
// session bus at `busAddress`, serving org.freedesktop.portal.GlobalShortcuts and
// org.freedesktop.portal.RemoteDesktop (as org.freedesktop.portal.Desktop at
// /org/freedesktop/portal/desktop) through a stand-in for the desktop's side that the test
// controls. The stand-in binds whatever it is asked without a dialog; the test decides how binds
// are answered, which key the desktop assigns, and when a shortcut is pressed or released,
// reassigned, or its session ended by the desktop. For remote desktop it decides how the user
// answers the consent a Start asks for, and sees the keys typed.
//
// The stand-in's control object, for a look with a D-Bus tool: the bus name
// org.freedesktop.impl.portal.desktop.murmurlytest, path /control, interface
// com.qv.murmurly.test.ShortcutsPortal, methods Activate(s)->u, Deactivate(s)->u,
// SetBindAnswer(u), SetAssignedTrigger(ss), ChangeTrigger(ss)->u, CloseSessions()->u,
// BindRequests()->s (JSON), LiveSessions()->u, SessionsBinding(s)->u, SetConsentAnswer(u),
// ConsentRequests()->u, Keysyms()->s (JSON), RemoteDesktopSessions()->u.
//
// A session counts as live from its creation until the client (through the frontend) closes it,
// closeSessions() ends it, or the frontend that made it goes away; sessions of both portals
// count. The bus has no service activation, so the frontend runs without the document portal and
// the permission store; global shortcuts need neither, and this frontend (1.16) keeps no
// remote-desktop consents: it passes neither persist_mode nor restore_token to the desktop.
// Starting waits a bounded time until the frontend answers; both processes are stopped when the
// object goes. Every call to the stand-in is bounded too: a stand-in that does not answer gives
// nothing (or false), never a hang.
class PrivateDesktopPortal {
public:
    static inline const QString backendService =
        QStringLiteral("org.freedesktop.impl.portal.desktop.murmurlytest");

    explicit PrivateDesktopPortal(const QString& busAddress);
    ~PrivateDesktopPortal();
    PrivateDesktopPortal(const PrivateDesktopPortal&) = delete;
    PrivateDesktopPortal& operator=(const PrivateDesktopPortal&) = delete;

    // Both processes run and the frontend answered when last started.
    bool isRunning() const;
    // Why it is not running, with the end of both processes' logs.
    QString error() const;
    // The last lines the frontend (run verbose) and the stand-in (a line per call) wrote.
    QString log() const;

    // Presses (activate) or releases (deactivate) shortcut `id` on the desktop: every live
    // session that bound it is signalled. The answer is how many were.
    std::optional<uint> activate(const QString& id);
    std::optional<uint> deactivate(const QString& id);
    // How following binds are answered: 0 bound, 1 dismissed by the user, 2 failed.
    bool setBindAnswer(uint response);
    // The trigger that following binds report for `id`, as a desktop that picks its own key;
    // without one, a bind reports the preferred trigger it was asked for.
    bool setAssignedTrigger(const QString& id, const QString& triggerDescription);
    // Reassigns `id` in every live session that bound it, which each learns of by
    // ShortcutsChanged; the answer is how many sessions were told.
    std::optional<uint> changeTrigger(const QString& id, const QString& triggerDescription);
    // Ends every live session as the desktop would; the answer is how many were.
    std::optional<uint> closeSessions();

    struct RequestedShortcut {
        QString id;
        QString description;
        QString preferredTrigger; // empty when none was asked for
    };
    // One bind the desktop was asked for, whatever it answered.
    struct BindRequest {
        QString session; // the session's handle, as the client knows it
        QString appId;   // the app id the frontend gave when the session was created
        QString parentWindow;
        QList<RequestedShortcut> shortcuts;
    };
    // Every bind since the start, oldest first (kept across restarts of the frontend).
    std::optional<QList<BindRequest>> bindRequests();
    // How many sessions are live, and how many of them have `id` bound.
    std::optional<uint> liveSessions();
    std::optional<uint> sessionsBinding(const QString& id);

    // How following remote-desktop Starts that ask the user are answered: 0 granted (the
    // keyboard), 1 dismissed by the user.
    bool setConsentAnswer(uint response);
    // How many Starts asked the user; a Start with restore data the desktop issued does not.
    std::optional<uint> consentRequests();
    // Every key the desktop accepted through NotifyKeyboardKeysym, oldest first: the keysym and
    // its state (1 pressed, 0 released).
    std::optional<QList<QPair<int, uint>>> keysyms();
    // How many remote-desktop sessions are live.
    std::optional<uint> remoteDesktopSessions();

    // The portal restarting: stops the frontend, waits until the desktop's side has dropped its
    // sessions, and starts it again, waiting as at the start. Clients are not told beyond the
    // bus's own NameOwnerChanged; their sessions are gone.
    bool restartFrontend();
    // The processes' ids; 0 for one that is not running.
    qint64 frontendProcessId() const { return m_frontend.processId(); }
    qint64 standInProcessId() const { return m_standIn.processId(); }

private:
    bool startStandIn();
    bool startFrontend();
    void stopFrontend();
    bool fail(const QString& reason);
    std::optional<QVariant> callStandIn(const QString& method, const QVariantList& arguments = {});
    std::optional<uint> countFromStandIn(const QString& method, const QVariantList& arguments = {});

    QString m_busAddress;
    QString m_connectionName;
    QDBusConnection m_bus;
    QTemporaryDir m_dir;
    QProcess m_standIn;
    QProcess m_frontend;
    QString m_error;
};

} // namespace murmurly::testing
