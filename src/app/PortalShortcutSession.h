#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QList>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <optional>

namespace murmurly {

// One session of the desktop's global-shortcuts portal (org.freedesktop.portal.GlobalShortcuts):
// it is created, its shortcuts are bound once (the portal's documents allow one bind per session,
// and the desktop, not the program, decides the keys), and from then on it reports each shortcut's
// activation and deactivation until it is closed, by the program or by the desktop. Calls never
// block. Main thread only.
class PortalShortcutSession final : public QObject {
    Q_OBJECT

public:
    static inline const QString interface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");

    struct Shortcut {
        QString id;
        QString description;
        QString preferredTrigger; // in the shortcuts notation ("CTRL+a", "F9"); empty for none
    };
    // A shortcut as the desktop bound it.
    struct Bound {
        QString id;
        QString triggerDescription; // how to trigger it, in the desktop's words; may be empty
    };

    enum class State { opening, bound, refused, closed };

    // Whether the session bus has a portal with global shortcuts (a bounded call).
    static bool isOffered(QDBusConnection bus);

    // Starts creating the session and binding `shortcuts` at once.
    PortalShortcutSession(QDBusConnection bus, QList<Shortcut> shortcuts, QObject* parent = nullptr);
    // Closes the session on the portal, which unbinds its shortcuts.
    ~PortalShortcutSession() override;
    // Closes the session on the portal now; nothing is reported of it afterwards.
    void close();

    State state() const { return m_state; }
    // Why the session was refused or closed, for the log and the settings.
    QString reason() const { return m_reason; }
    std::optional<QString> triggerDescription(const QString& id) const;

signals:
    void stateChanged();
    void shortcutsChanged();
    void activated(const QString& id);
    void deactivated(const QString& id);

private slots:
    void portalSignal(const QDBusMessage& message);
    void sessionClosed(const QDBusMessage& message);
    void portalOwnerChanged(const QString& name, const QString& oldOwner, const QString& newOwner);

private:
    void created(uint response, const QVariantMap& results, const QString& error);
    void bind();
    void bound(uint response, const QVariantMap& results, const QString& error);
    void refuse(const QString& reason);
    void end(State state, const QString& reason);
    void readShortcuts(const QVariant& list);

    QDBusConnection m_bus;
    QList<Shortcut> m_shortcuts;
    QString m_sessionHandle;
    State m_state = State::opening;
    QString m_reason;
    QList<Bound> m_bound;
};

} // namespace murmurly
