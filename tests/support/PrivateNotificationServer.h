#pragma once

#include <QDBusConnection>
#include <QList>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <QVariantMap>

#include <optional>

namespace murmurly::testing {

// A real notification server of the test's own: dunst on the DISPLAY of this process, serving
// org.freedesktop.Notifications on the bus at `busAddress`, with a configuration of the test's
// own (bodies taken as plain text, nothing expiring by itself). What it received is read through dunst's own
// D-Bus interface. Starting waits a bounded time for the server to own its name; it is stopped when the
// object goes.
class PrivateNotificationServer {
public:
    explicit PrivateNotificationServer(const QString& busAddress);
    ~PrivateNotificationServer();
    PrivateNotificationServer(const PrivateNotificationServer&) = delete;
    PrivateNotificationServer& operator=(const PrivateNotificationServer&) = delete;

    bool isRunning() const { return m_error.isEmpty(); }
    QString error() const { return m_error; }

    // How many notifications are on screen; nothing when the server does not answer.
    std::optional<uint> displayedCount();
    // Closes what is on screen and returns every notification the server kept (each as the
    // server's fields: "id", "appname", "summary", "body", …), oldest first. Transient ones are
    // never kept.
    std::optional<QList<QVariantMap>> closeAllAndListHistory();
    // Acts as a click on the newest notification on screen (its default action).
    bool activateNewest();
    // A notification of another program, whose answer tells that everything sent before it has
    // been taken in.
    std::optional<uint> notifyAsAnotherProgram(const QString& body);

    // Every notification the server has put on screen, a replacement counting again, in the order
    // the server's script for each ran (which follows the order shown, except for notifications
    // shown within the same instant).
    struct Shown {
        uint id = 0;
        QString appName;
        QString body;
    };
    QList<Shown> shown() const;

private:
    QTemporaryDir m_dir;
    QString m_records; // one file per notification shown
    QProcess m_server;
    QDBusConnection m_bus;
    QString m_error;
};

} // namespace murmurly::testing
