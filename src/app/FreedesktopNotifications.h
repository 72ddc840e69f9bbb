#pragma once

#include "app/Notifications.h"

#include <QDBusConnection>
#include <QObject>

#include <array>
#include <optional>

namespace murmurly {

// Notifications through the desktop's notification server (org.freedesktop.Notifications on the
// session bus), which every desktop provides. Calls never block: a slot waits for the server's
// answer before it replaces or withdraws its notification, so a quick withdraw after a show still
// takes the notification away, and two quick shows replace rather than pile up. The server's
// capabilities are asked once, before the first notification. Main thread only.
class FreedesktopNotifications final : public QObject, public Notifications {
    Q_OBJECT

public:
    static inline const QString service = QStringLiteral("org.freedesktop.Notifications");
    static inline const QString path = QStringLiteral("/org/freedesktop/Notifications");
    static inline const QString interface = QStringLiteral("org.freedesktop.Notifications");
    // The longest the server may take to answer a call.
    static constexpr int callLimitMilliseconds = 5000;

    explicit FreedesktopNotifications(QDBusConnection bus, QObject* parent = nullptr);
    ~FreedesktopNotifications() override;

    void show(Slot slot, const QString& body, std::function<void()> delivered = {}) override;
    void withdraw(Slot slot) override;

    // The server's id of what the slot shows; 0 when it shows nothing (or the server has not
    // answered yet).
    uint notificationId(Slot slot) const { return m_slots.at(index(slot)).id; }
    // Whether a call to the server still awaits its answer (or a notice waits to be sent).
    bool isBusy() const;

private slots:
    void actionInvoked(uint id, const QString& actionKey);
    void notificationClosed(uint id, uint reason);

private:
    struct Notice {
        QString body;
        std::function<void()> delivered;
    };
    struct SlotState {
        uint id = 0;           // what the slot shows
        bool inFlight = false; // a Notify call awaits its answer
        bool wanted = false;   // false once withdrawn
        std::optional<Notice> waiting;
    };
    enum class Capabilities { unknown, asking, known };

    static std::size_t index(Slot slot) { return static_cast<std::size_t>(slot); }
    void askCapabilities();
    void send(Slot slot, Notice notice);
    void sendWaiting(Slot slot);
    void close(uint id);
    void warnOnce(const QString& message);

    QDBusConnection m_bus;
    std::array<SlotState, 2> m_slots;
    // The message last shown, kept after it closes: some servers tell of the click after the close.
    uint m_lastMessageId = 0;
    Capabilities m_capabilities = Capabilities::unknown;
    bool m_markup = false;  // the server reads the body as markup
    bool m_actions = false; // the server shows actions
    bool m_warned = false;
};

} // namespace murmurly
