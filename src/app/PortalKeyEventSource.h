#pragma once

#include "app/PortalShortcutSession.h"
#include "hotkey/KeyEventSource.h"

#include <QDBusConnection>
#include <QObject>

#include <memory>

namespace murmurly {

class HostPortalRegistration;

// The trigger on a desktop whose global-shortcuts portal lets a program be told of a key's press
// and release without reading the keyboard. The trigger is one shortcut, "dictate", bound with the
// chosen key as the preferred trigger; the desktop decides the key, and its activation and
// deactivation reach the sink as the press and release of the chosen binding, so the monitor
// decides press, release and cancel exactly as for a keyboard it reads. Esc is bound, as a
// second session of its own, only while a cancel is armed, so that it is never taken from other
// programs while idle. Main thread only, the sink included.
class PortalKeyEventSource final : public QObject, public KeyEventSource {
    Q_OBJECT

public:
    static inline const QString dictateId = QStringLiteral("dictate");
    static inline const QString cancelId = QStringLiteral("cancel");
    // Asked for when the chosen trigger is a modifier alone, which desktop shortcuts cannot be.
    static inline const QString proposedTrigger = QStringLiteral("F9");

    // `registration`, when given, is renewed before each session is opened (a portal that
    // restarted has forgotten it); it must outlive this object.
    explicit PortalKeyEventSource(QDBusConnection bus, HostPortalRegistration* registration = nullptr,
                                  QObject* parent = nullptr);
    ~PortalKeyEventSource() override;

    // Opens the portal session unless one is open or opening; false once the desktop refused the
    // shortcut (it is not asked again until retry()).
    bool start(KeyEventSink& sink) override;
    // Drops the sink; the session stays, so the desktop is not asked again on the next start.
    void stop() override;
    // True while the session is open or opening; false once the desktop closed or refused it.
    bool isRunning() const override;
    void setSwallowedKeys(const SwallowedKeys& keys) override;
    void setBinding(const HotkeyBinding& binding) override;
    std::optional<QString> assignedTrigger() const override;
    void setAssignmentObserver(std::function<void()> observer) override { m_observer = std::move(observer); }

    // The trigger in the portal's shortcut notation; empty for a modifier alone.
    static QString preferredTrigger(const HotkeyBinding& binding);
    // What the trigger request asks the desktop for: the binding's key, or the proposed key.
    QString requestedTrigger() const;

    bool isRefused() const;
    // Why the desktop refused or closed the shortcut; empty while it works.
    QString problem() const { return m_session ? m_session->reason() : QString(); }
    // Asks the desktop again, in a new session: after a refusal, or to let the user choose anew.
    void retry();
    // One line for the settings on how the trigger works here; empty when there is nothing to say.
    QString note() const;

signals:
    void changed();

private:
    void discard(std::unique_ptr<PortalShortcutSession>& session);
    void openSession();
    void sessionStateChanged();
    void activated(const QString& id);
    void deactivated(const QString& id);
    void deliver(KeyEvent::Type type, std::int64_t keyCode, std::uint64_t flags);
    void pressTrigger(bool down);
    void notifyAssignment();

    QDBusConnection m_bus;
    HostPortalRegistration* m_registration;
    KeyEventSink* m_sink = nullptr;
    HotkeyBinding m_binding = HotkeyBinding::defaultBinding();
    std::unique_ptr<PortalShortcutSession> m_session;
    std::unique_ptr<PortalShortcutSession> m_cancelSession;
    bool m_triggerDown = false;
    std::optional<QString> m_lastAssigned;
    std::function<void()> m_observer;
};

} // namespace murmurly
