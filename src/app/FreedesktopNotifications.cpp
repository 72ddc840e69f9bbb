#include "app/FreedesktopNotifications.h"

#include "core/Log.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>

#include <algorithm>

namespace murmurly {

namespace {

const QString programName = QStringLiteral("Murmurly");
// The key of the action that clicking the notification itself invokes (freedesktop.org notifications).
const QString defaultActionKey = QStringLiteral("default");

} // namespace

FreedesktopNotifications::FreedesktopNotifications(QDBusConnection bus, QObject* parent)
    : QObject(parent)
    , m_bus(std::move(bus)) {
    m_bus.connect(service, path, interface, QStringLiteral("ActionInvoked"), this,
                  SLOT(actionInvoked(uint, QString)));
    m_bus.connect(service, path, interface, QStringLiteral("NotificationClosed"), this,
                  SLOT(notificationClosed(uint, uint)));
}

FreedesktopNotifications::~FreedesktopNotifications() {
    // A recording notice never expires by itself; it must not outlive the program.
    withdraw(Slot::recording);
}

void FreedesktopNotifications::show(Slot slot, const QString& body, std::function<void()> delivered) {
    SlotState& state = m_slots.at(index(slot));
    state.wanted = true;
    Notice notice{body, std::move(delivered)};
    if (m_capabilities != Capabilities::known || state.inFlight) {
        // Only the newest waits: it replaces whatever was meant to come before it.
        state.waiting = std::move(notice);
        askCapabilities();
        return;
    }
    send(slot, std::move(notice));
}

void FreedesktopNotifications::withdraw(Slot slot) {
    SlotState& state = m_slots.at(index(slot));
    state.wanted = false;
    state.waiting.reset();
    // One still on its way is closed when its id comes back.
    if (state.inFlight || state.id == 0) return;
    close(state.id);
    state.id = 0;
}

bool FreedesktopNotifications::isBusy() const {
    if (m_capabilities == Capabilities::asking) return true;
    return std::any_of(m_slots.begin(), m_slots.end(),
                       [](const SlotState& state) { return state.inFlight || state.waiting.has_value(); });
}

void FreedesktopNotifications::askCapabilities() {
    if (m_capabilities != Capabilities::unknown) return;
    m_capabilities = Capabilities::asking;
    const QDBusMessage call =
        QDBusMessage::createMethodCall(service, path, interface, QStringLiteral("GetCapabilities"));
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call, callLimitMilliseconds), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* finished) {
        finished->deleteLater();
        const QDBusPendingReply<QStringList> reply = *finished;
        if (reply.isError()) {
            warnOnce(reply.error().message());
        } else {
            m_markup = reply.value().contains(QStringLiteral("body-markup"));
            m_actions = reply.value().contains(QStringLiteral("actions"));
        }
        m_capabilities = Capabilities::known;
        sendWaiting(Slot::message);
        sendWaiting(Slot::recording);
    });
}

void FreedesktopNotifications::sendWaiting(Slot slot) {
    SlotState& state = m_slots.at(index(slot));
    if (state.inFlight || !state.waiting) return;
    Notice notice = std::move(*state.waiting);
    state.waiting.reset();
    send(slot, std::move(notice));
}

void FreedesktopNotifications::send(Slot slot, Notice notice) {
    SlotState& state = m_slots.at(index(slot));
    const bool message = slot == Slot::message;
    // Error texts may hold "<" or "&" (an address, say); a server that reads markup gets them escaped.
    const QString body = m_markup ? notice.body.toHtmlEscaped() : notice.body;
    QStringList actions;
    if (message && m_actions) actions << defaultActionKey << QStringLiteral("Open Settings");
    QVariantMap hints;
    // Normal urgency for both: GNOME shows low-urgency notices only in its list, not on screen.
    hints.insert(QStringLiteral("urgency"), QVariant::fromValue<uchar>(1));
    hints.insert(QStringLiteral("desktop-entry"), QStringLiteral("murmurly"));
    if (!message) hints.insert(QStringLiteral("transient"), true);
    // Messages expire as the desktop sees fit; the recording notice stays until withdrawn.
    const int expireTimeout = message ? -1 : 0;

    QDBusMessage call = QDBusMessage::createMethodCall(service, path, interface, QStringLiteral("Notify"));
    call << programName << state.id << QStringLiteral("murmurly") << programName << body << actions << hints
         << expireTimeout;
    state.inFlight = true;
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call, callLimitMilliseconds), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, slot, delivered = std::move(notice.delivered)](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                SlotState& answered = m_slots.at(index(slot));
                answered.inFlight = false;
                const QDBusPendingReply<uint> reply = *finished;
                if (reply.isError()) {
                    warnOnce(reply.error().message());
                } else {
                    answered.id = reply.value();
                    if (slot == Slot::message) m_lastMessageId = answered.id;
                    if (delivered) delivered();
                    if (!answered.wanted) {
                        close(answered.id);
                        answered.id = 0;
                    }
                }
                sendWaiting(slot);
            });
}

void FreedesktopNotifications::close(uint id) {
    const QDBusMessage call =
        QDBusMessage::createMethodCall(service, path, interface, QStringLiteral("CloseNotification")) << id;
    m_bus.asyncCall(call, callLimitMilliseconds);
}

void FreedesktopNotifications::actionInvoked(uint id, const QString& actionKey) {
    if (id == 0 || id != m_lastMessageId) return;
    if (actionKey == defaultActionKey && onActivated) onActivated();
}

void FreedesktopNotifications::notificationClosed(uint id, uint) {
    for (SlotState& state : m_slots)
        if (state.id == id) state.id = 0;
}

void FreedesktopNotifications::warnOnce(const QString& message) {
    if (m_warned) return;
    m_warned = true;
    qCWarning(lcApp, "Desktop notifications are not available: %s", qUtf8Printable(message));
}

} // namespace murmurly
