#pragma once

#include "output/PasteKeys.h"

#include <QDBusConnection>
#include <QObject>
#include <QString>

#include <deque>
#include <functional>
#include <utility>

namespace murmurly {

class Defaults;

// The paste chord through the desktop's remote-desktop portal (org.freedesktop.portal.RemoteDesktop),
// for Wayland desktops that offer programs no virtual keyboard (GNOME, KDE Plasma). A session with
// the keyboard is asked for once, at start; the desktop asks the user's consent (a restore token
// from an earlier consent is offered, where the desktop keeps them). Each chord is then four (or
// six, with Shift for a terminal) key events sent as keysyms, so it is Ctrl+V whatever the layout.
// Calls never block. Main thread only.
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

    // `defaults` must outlive this object.
    RemoteDesktopPasteKeys(QDBusConnection bus, Defaults& defaults, QObject* parent = nullptr);
    ~RemoteDesktopPasteKeys() override;

    // Asks the desktop for the keyboard, unless it is being asked or already given.
    void start();
    State state() const { return m_state; }
    // Why the desktop refused or ended the session; empty otherwise.
    QString problem() const { return m_problem; }

    // Asked at each paste: whether the focused application is a terminal (Ctrl+Shift+V).
    void setTerminalCheck(std::function<bool()> isTerminal) { m_isTerminal = std::move(isTerminal); }

    // False while the desktop has not given the keyboard; nothing is sent then.
    bool paste() override;

signals:
    void stateChanged();

private slots:
    void sessionClosed(const QDBusMessage& message);

private:
    void selectDevices();
    void startSession();
    void fail(State state, const QString& reason);
    void key(int keysym, bool pressed);
    void sendNextKey();

    QDBusConnection m_bus;
    Defaults& m_defaults;
    State m_state = State::idle;
    QString m_sessionHandle;
    QString m_problem;
    bool m_closedWhileAsking = false;
    std::deque<std::pair<int, bool>> m_keys; // waiting for the portal to take the one before
    bool m_sending = false;
    std::function<bool()> m_isTerminal;
};

} // namespace murmurly
