#pragma once

#include "output/PasteKeys.h"

#include <QDBusConnection>
#include <QObject>
#include <QString>

#include <cstdint>
#include <deque>
#include <functional>
#include <utility>
#include <vector>

namespace murmurly {

class Defaults;
class HostPortalRegistration;

// The paste chord through the desktop's remote-desktop portal (org.freedesktop.portal.RemoteDesktop),
// for Wayland desktops that offer programs no virtual keyboard (GNOME, KDE Plasma). A session with
// the keyboard is asked for once, at start; the desktop asks the user's consent (a restore token
// from an earlier consent is offered, where the desktop keeps them). Each chord is then four (or
// six, with Shift for a terminal) key events sent as keysyms, so it is Ctrl+V whatever the layout.
// A chord the desktop stops taking half-way is ended: what it pressed is released where the
// desktop still answers, and the session, no longer trusted, is asked for anew at the next chord
// or as soon as a portal that went away is back. Calls never block. Main thread only.
class RemoteDesktopPasteKeys final : public QObject, public PasteKeys {
    Q_OBJECT

public:
    static inline const QString interface = QStringLiteral("org.freedesktop.portal.RemoteDesktop");
    // Where the token of the last consent is kept.
    static inline const QString restoreTokenKey = QStringLiteral("remoteDesktopRestoreToken");
    // The desktop may wait for the user's consent this long.
    static constexpr int consentLimitMilliseconds = 120'000;

    enum class State { idle, asking, ready, refused, ended };

    // Whether the session bus has a remote-desktop portal that offers a keyboard (a bounded call).
    static bool isOffered(QDBusConnection bus);

    // `defaults` and `registration` (renewed before each session is asked for; may be null) must
    // outlive this object.
    RemoteDesktopPasteKeys(QDBusConnection bus, Defaults& defaults,
                           HostPortalRegistration* registration = nullptr, QObject* parent = nullptr);
    ~RemoteDesktopPasteKeys() override;

    // Asks the desktop for the keyboard, unless it is being asked or already given.
    void start();
    State state() const { return m_state; }
    // Why the desktop refused or ended the session, or why the last one was dropped; empty
    // otherwise.
    QString problem() const { return m_problem; }

    // Asked at each paste: whether the focused application is a terminal (Ctrl+Shift+V).
    void setTerminalCheck(std::function<bool()> isTerminal) { m_isTerminal = std::move(isTerminal); }

    // False while the desktop has not given the keyboard; nothing is sent then. After a session
    // was dropped, this asks for a new one. The chord's keys go out after this returns; how they
    // ended is told by chordEnded.
    bool paste() override;

signals:
    void stateChanged();
    // Every chord sent has ended: `complete` when the desktop took each of its keys.
    void chordEnded(bool complete);

private slots:
    void sessionClosed(const QDBusMessage& message);
    void portalOwnerChanged(const QString& name, const QString& oldOwner, const QString& newOwner);

private:
    // The session can no longer be used: it is dropped and asked for again later.
    void drop(const QString& reason);
    // A key was not taken: the rest of the chord is replaced by the release of what it pressed.
    void breakChord(const QString& reason);
    void selectDevices();
    void startSession();
    void fail(State state, const QString& reason);
    void key(int keysym, bool pressed);
    void sendNextKey();

    QDBusConnection m_bus;
    Defaults& m_defaults;
    HostPortalRegistration* m_registration;
    State m_state = State::idle;
    QString m_sessionHandle;
    QString m_problem;
    bool m_closedWhileAsking = false;
    bool m_askAgain = false;                 // the session was dropped: the next chord asks for a new one
    std::uint64_t m_attempt = 0;             // answers to an earlier start() are stale
    std::deque<std::pair<int, bool>> m_keys; // waiting for the portal to take the one before
    std::vector<int> m_held;                 // pressed on the desktop, as far as we know
    bool m_sending = false;
    bool m_chordBroken = false; // the session failed a key of the chord being sent
    bool m_chordFailed = false; // a key of the chords being sent was not taken
    std::function<bool()> m_isTerminal;
};

} // namespace murmurly
