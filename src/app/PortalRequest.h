#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>

#include <functional>
#include <optional>

namespace murmurly {

// One call of a desktop portal method that answers later through the Response signal of a
// Request object (org.freedesktop.portal.Request). The request's path is chosen in advance with a
// handle token, and the signal is watched before the call goes out, so no answer can be missed.
// The call never blocks; an error, or no answer within the limit, is told as response 2 with the
// reason. Deletes itself once it has answered. Main thread only.
class PortalRequest final : public QObject {
    Q_OBJECT

public:
    static inline const QString service = QStringLiteral("org.freedesktop.portal.Desktop");
    static inline const QString path = QStringLiteral("/org/freedesktop/portal/desktop");
    static inline const QString sessionInterface = QStringLiteral("org.freedesktop.portal.Session");
    // The longest the portal may take to answer a call that does not wait for the user.
    static constexpr int callLimitMilliseconds = 5000;

    // `response`: 0 granted, 1 dismissed by the user, 2 anything else; `error` says why for 2.
    using Answer = std::function<void(uint response, const QVariantMap& results, const QString& error)>;

    // Calls `method` of `interface` with `arguments`, whose last one is the options map (the handle
    // token is added to it). `answer` is called once, unless `context` is gone by then.
    static void call(QDBusConnection bus, const QString& interface, const QString& method,
                     QVariantList arguments, QObject* context, Answer answer, int limitMilliseconds);

    // A property of one of the portal's interfaces, read with a bounded wait; nothing when the
    // portal or the interface is not there.
    static std::optional<QVariant> property(QDBusConnection bus, const QString& interface,
                                            const QString& name);
    // Closes a session the portal made, without waiting for the answer.
    static void closeSession(QDBusConnection bus, const QString& sessionHandle);
    // An object path the portal sends as an object path or, in some places, as a string.
    static QString objectPath(const QVariant& value);

private slots:
    void response(const QDBusMessage& message);

private:
    PortalRequest(QDBusConnection bus, QObject* context, Answer answer);
    void finish(uint response, const QVariantMap& results, const QString& error);

    QDBusConnection m_bus;
    QString m_requestPath;
    Answer m_answer;
    bool m_done = false;
};

} // namespace murmurly
