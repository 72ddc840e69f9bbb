#include "app/PortalRequest.h"

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QTimer>
#include <QUuid>

#include <utility>

namespace murmurly {

namespace {

const QString requestInterface = QStringLiteral("org.freedesktop.portal.Request");

} // namespace

PortalRequest::PortalRequest(QDBusConnection bus, QObject* context, Answer answer)
    : QObject(context)
    , m_bus(std::move(bus))
    , m_answer(std::move(answer)) {
}

void PortalRequest::call(QDBusConnection bus, const QString& interface, const QString& method,
                         QVariantList arguments, QObject* context, Answer answer, int limitMilliseconds) {
    // A child of the context: gone with it, and then it answers nothing.
    auto* request = new PortalRequest(bus, context, std::move(answer));
    const QString token = QStringLiteral("murmurly_") + QUuid::createUuid().toString(QUuid::Id128);
    // The portal names the request after the caller's unique name and the token.
    QString sender = bus.baseService();
    sender.remove(0, sender.startsWith(QLatin1Char(':')) ? 1 : 0);
    sender.replace(QLatin1Char('.'), QLatin1Char('_'));
    request->m_requestPath = path + QStringLiteral("/request/") + sender + QLatin1Char('/') + token;
    if (!bus.connect(service, request->m_requestPath, requestInterface, QStringLiteral("Response"), request,
                     SLOT(response(QDBusMessage)))) {
        QTimer::singleShot(0, request, [request] {
            request->finish(2, {}, QStringLiteral("The session bus cannot be watched."));
        });
        return;
    }
    QVariantMap options = arguments.isEmpty() ? QVariantMap() : arguments.takeLast().toMap();
    options.insert(QStringLiteral("handle_token"), token);
    arguments.append(options);
    QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, method);
    message.setArguments(arguments);
    auto* pending = new QDBusPendingCallWatcher(bus.asyncCall(message, limitMilliseconds), request);
    connect(pending, &QDBusPendingCallWatcher::finished, request,
            [request](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                if (finished->isError()) request->finish(2, {}, finished->error().message());
            });
    QTimer::singleShot(limitMilliseconds, request, [request] {
        request->finish(2, {}, QStringLiteral("The desktop did not answer in time."));
    });
}

std::optional<QVariant> PortalRequest::property(QDBusConnection bus, const QString& interface,
                                                const QString& name) {
    if (!bus.isConnected()) return std::nullopt;
    QDBusMessage get = QDBusMessage::createMethodCall(
        service, path, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get << interface << name;
    const QDBusMessage reply = bus.call(get, QDBus::Block, callLimitMilliseconds);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return std::nullopt;
    return reply.arguments().constFirst().value<QDBusVariant>().variant();
}

void PortalRequest::closeSession(QDBusConnection bus, const QString& sessionHandle) {
    bus.asyncCall(
        QDBusMessage::createMethodCall(service, sessionHandle, sessionInterface, QStringLiteral("Close")),
        callLimitMilliseconds);
}

QString PortalRequest::objectPath(const QVariant& value) {
    return value.userType() == qMetaTypeId<QDBusObjectPath>() ? value.value<QDBusObjectPath>().path()
                                                              : value.toString();
}

void PortalRequest::response(const QDBusMessage& message) {
    if (message.path() != m_requestPath) return;
    const QList<QVariant> arguments = message.arguments();
    finish(arguments.value(0).toUInt(), qdbus_cast<QVariantMap>(arguments.value(1)), QString());
}

void PortalRequest::finish(uint response, const QVariantMap& results, const QString& error) {
    if (std::exchange(m_done, true)) return;
    m_bus.disconnect(service, m_requestPath, requestInterface, QStringLiteral("Response"), this,
                     SLOT(response(QDBusMessage)));
    Answer answer = std::move(m_answer);
    deleteLater();
    if (answer) answer(response, results, error);
}

} // namespace murmurly
