#include "app/RemoteDesktopPasteKeys.h"

#include "app/HostPortalRegistration.h"
#include "app/PortalRequest.h"
#include "core/Defaults.h"
#include "core/Log.h"

#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QUuid>

#include <utility>

namespace murmurly {

namespace {

constexpr int callLimitMilliseconds = PortalRequest::callLimitMilliseconds;
constexpr uint keyboardDevice = 1;
constexpr uint persistUntilRevoked = 2;

// X keysyms: the chord is named by symbol, so the desktop finds the keys on the user's layout.
constexpr int controlKeysym = 0xffe3;
constexpr int shiftKeysym = 0xffe1;
constexpr int vKeysym = 0x76;

QString reasonFor(uint response, const QString& error, const QString& what) {
    if (response == 1) return QStringLiteral("The desktop's permission to press keys was not given.");
    return what + (error.isEmpty() ? QString() : QStringLiteral(": ") + error);
}

} // namespace

bool RemoteDesktopPasteKeys::isOffered(QDBusConnection bus) {
    const std::optional<QVariant> devices =
        PortalRequest::property(std::move(bus), interface, QStringLiteral("AvailableDeviceTypes"));
    return devices && (devices->toUInt() & keyboardDevice) != 0;
}

RemoteDesktopPasteKeys::RemoteDesktopPasteKeys(QDBusConnection bus, Defaults& defaults,
                                               HostPortalRegistration* registration, QObject* parent)
    : QObject(parent)
    , m_bus(std::move(bus))
    , m_defaults(defaults)
    , m_registration(registration) {
    // The portal going away takes the session with it; a portal that is back is asked again.
    auto* watcher = new QDBusServiceWatcher(PortalRequest::service, m_bus,
                                            QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            &RemoteDesktopPasteKeys::portalOwnerChanged);
}

RemoteDesktopPasteKeys::~RemoteDesktopPasteKeys() {
    if (!m_sessionHandle.isEmpty() && m_state != State::ended && m_state != State::refused)
        PortalRequest::closeSession(m_bus, m_sessionHandle);
}

void RemoteDesktopPasteKeys::start() {
    if (m_state == State::asking || m_state == State::ready) return;
    if (m_registration) m_registration->ensure();
    const std::uint64_t attempt = ++m_attempt;
    m_state = State::asking;
    m_closedWhileAsking = false;
    m_askAgain = false;
    m_problem.clear();
    m_sessionHandle.clear();
    emit stateChanged();
    PortalRequest::call(
        m_bus, interface, QStringLiteral("CreateSession"),
        {QVariantMap{{QStringLiteral("session_handle_token"),
                      QStringLiteral("murmurly_paste_") + QUuid::createUuid().toString(QUuid::Id128)}}},
        this,
        [this, attempt](uint response, const QVariantMap& results, const QString& error) {
            if (attempt != m_attempt) return;
            const QString handle = PortalRequest::objectPath(results.value(QStringLiteral("session_handle")));
            if (response != 0 || handle.isEmpty()) {
                fail(State::refused,
                     reasonFor(response, error, QStringLiteral("The desktop opened no session")));
                return;
            }
            m_sessionHandle = handle;
            m_bus.connect(PortalRequest::service, m_sessionHandle, PortalRequest::sessionInterface,
                          QStringLiteral("Closed"), this, SLOT(sessionClosed(QDBusMessage)));
            selectDevices();
        },
        callLimitMilliseconds);
}

void RemoteDesktopPasteKeys::selectDevices() {
    QVariantMap options{{QStringLiteral("types"), keyboardDevice},
                        {QStringLiteral("persist_mode"), persistUntilRevoked}};
    // Desktops that keep consents hand back a token for the next start; others ignore it.
    const QString token = m_defaults.stringValue(restoreTokenKey).value_or(QString());
    if (!token.isEmpty()) options.insert(QStringLiteral("restore_token"), token);
    PortalRequest::call(
        m_bus, interface, QStringLiteral("SelectDevices"),
        {QVariant::fromValue(QDBusObjectPath(m_sessionHandle)), options}, this,
        [this, attempt = m_attempt](uint response, const QVariantMap&, const QString& error) {
            if (attempt != m_attempt) return;
            if (response != 0) {
                fail(State::refused,
                     reasonFor(response, error, QStringLiteral("The desktop offered no keyboard")));
                return;
            }
            startSession();
        },
        callLimitMilliseconds);
}

void RemoteDesktopPasteKeys::startSession() {
    PortalRequest::call(
        m_bus, interface, QStringLiteral("Start"),
        {QVariant::fromValue(QDBusObjectPath(m_sessionHandle)), QString(), QVariantMap()}, this,
        [this, attempt = m_attempt](uint response, const QVariantMap& results, const QString& error) {
            if (attempt != m_attempt) return;
            if (response != 0) {
                fail(State::refused, reasonFor(response, error, QStringLiteral("The desktop did not start")));
                return;
            }
            if ((results.value(QStringLiteral("devices")).toUInt() & keyboardDevice) == 0) {
                fail(State::refused, QStringLiteral("The desktop did not give the keyboard."));
                return;
            }
            if (m_closedWhileAsking) {
                fail(State::ended, QStringLiteral("The desktop ended the permission to press keys."));
                return;
            }
            const QString token = results.value(QStringLiteral("restore_token")).toString();
            if (!token.isEmpty()) m_defaults.setString(restoreTokenKey, token);
            m_state = State::ready;
            qCInfo(lcApp, "Paste chord through the remote-desktop portal: the keyboard was given");
            emit stateChanged();
        },
        consentLimitMilliseconds);
}

void RemoteDesktopPasteKeys::sessionClosed(const QDBusMessage& message) {
    if (message.path() != m_sessionHandle) return;
    // A desktop whose user dismissed the consent closes the session before it answers the start;
    // that answer says why.
    if (m_state == State::asking) {
        m_closedWhileAsking = true;
        return;
    }
    if (m_state != State::ready) return; // a refused session is closed after the refusal
    fail(State::ended, QStringLiteral("The desktop ended the permission to press keys."));
}

void RemoteDesktopPasteKeys::portalOwnerChanged(const QString&, const QString& oldOwner,
                                                const QString& newOwner) {
    if (!oldOwner.isEmpty() && (m_state == State::asking || m_state == State::ready))
        drop(QStringLiteral("The desktop's remote-desktop portal went away."));
    if (!newOwner.isEmpty() && m_askAgain && m_state == State::idle) start();
}

void RemoteDesktopPasteKeys::drop(const QString& reason) {
    if (!m_sessionHandle.isEmpty())
        m_bus.disconnect(PortalRequest::service, m_sessionHandle, PortalRequest::sessionInterface,
                         QStringLiteral("Closed"), this, SLOT(sessionClosed(QDBusMessage)));
    ++m_attempt; // what the old session still answers is of no use
    m_sessionHandle.clear();
    // Keys held in the session are released by the desktop as it ends the session's devices.
    m_held.clear();
    m_state = State::idle;
    m_askAgain = true;
    m_problem = reason;
    qCWarning(lcApp, "Remote-desktop portal: %s The keyboard is asked for again at the next paste.",
              qUtf8Printable(reason));
    emit stateChanged();
}

void RemoteDesktopPasteKeys::breakChord(const QString& reason) {
    if (std::exchange(m_chordBroken, true)) return;
    qCWarning(lcApp, "Remote-desktop portal: the paste chord was cut short: %s", qUtf8Printable(reason));
    m_problem = QStringLiteral("The desktop stopped taking keys: ") + reason;
    // The rest of the chord is not sent; whatever it pressed is released, last pressed first.
    m_keys.clear();
    for (auto held = m_held.rbegin(); held != m_held.rend(); ++held)
        m_keys.push_back({*held, false});
}

void RemoteDesktopPasteKeys::fail(State state, const QString& reason) {
    m_state = state;
    m_problem = reason;
    qCWarning(lcApp, "Remote-desktop portal: %s", qUtf8Printable(reason));
    emit stateChanged();
}

void RemoteDesktopPasteKeys::key(int keysym, bool pressed) {
    m_keys.push_back({keysym, pressed});
    if (!m_sending) sendNextKey();
}

// The portal may handle calls on several threads of its own, so keys sent back to back can reach
// the desktop in another order; each key goes out once the portal has taken the one before.
void RemoteDesktopPasteKeys::sendNextKey() {
    if (m_keys.empty() || m_state != State::ready) {
        const bool failed = std::exchange(m_chordFailed, false);
        const bool complete = m_keys.empty() && !failed;
        const bool broken = std::exchange(m_chordBroken, false);
        m_sending = false;
        m_keys.clear();
        // A session that stopped taking keys is not trusted with the next chord.
        if (broken && m_state == State::ready) {
            PortalRequest::closeSession(m_bus, m_sessionHandle);
            drop(QString(m_problem));
        }
        emit chordEnded(complete);
        return;
    }
    m_sending = true;
    const auto [keysym, pressed] = m_keys.front();
    m_keys.pop_front();
    // Counted as held from the moment it is sent: a press left unanswered may still have landed.
    if (pressed)
        m_held.push_back(keysym);
    else
        std::erase(m_held, keysym);
    QDBusMessage message = QDBusMessage::createMethodCall(PortalRequest::service, PortalRequest::path,
                                                          interface, QStringLiteral("NotifyKeyboardKeysym"));
    message << QVariant::fromValue(QDBusObjectPath(m_sessionHandle)) << QVariantMap() << keysym
            << uint(pressed ? 1 : 0);
    auto* pending = new QDBusPendingCallWatcher(m_bus.asyncCall(message, callLimitMilliseconds), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this,
            [this, attempt = m_attempt](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                // A session dropped meanwhile failed on its own; its keys say nothing of the next.
                if (finished->isError()) {
                    m_chordFailed = true;
                    if (attempt == m_attempt) breakChord(finished->error().message());
                }
                sendNextKey();
            });
}

bool RemoteDesktopPasteKeys::paste() {
    if (m_state == State::idle && m_askAgain) {
        start();
        return false;
    }
    if (m_state != State::ready) return false;
    const bool terminal = m_isTerminal && m_isTerminal();
    key(controlKeysym, true);
    if (terminal) key(shiftKeysym, true);
    key(vKeysym, true);
    key(vKeysym, false);
    if (terminal) key(shiftKeysym, false);
    key(controlKeysym, false);
    return true;
}

} // namespace murmurly
