#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <memory>

namespace murmurly::testing {

// A private D-Bus session bus, and optionally a gnome-keyring Secret Service on it, for keyring
// tests; never the user's own session or keyring. The bus is configured without service
// activation, so nothing can be started on it behind the test's back, and the keyring keeps its
// files in a temporary home. DBUS_SESSION_BUS_ADDRESS points at the private bus in this process
// only while the object exists. Every wait is bounded; everything is stopped afterwards.
class PrivateKeyring {
public:
    enum class With { secretService, busOnly };

    explicit PrivateKeyring(With with = With::secretService);
    ~PrivateKeyring();
    PrivateKeyring(const PrivateKeyring&) = delete;
    PrivateKeyring& operator=(const PrivateKeyring&) = delete;

    // Empty when everything started; otherwise what went wrong.
    QString error() const { return m_error; }
    QString busAddress() const { return m_address; }

    // Object paths of the Secret Service items whose attributes include all of these, asked of
    // the service directly over D-Bus (locked and unlocked together); -1 when the call fails.
    int countItems(const QString& service, const QString& account) const;

private:
    bool startBus();
    bool startKeyring();
    bool waitForSecretService() const;
    static void stop(QProcess& process);

    QTemporaryDir m_dir;
    QProcess m_bus;
    QProcess m_keyring;
    QString m_address;
    QString m_error;
    bool m_hadAddress = false;
    QByteArray m_previousAddress;
};

} // namespace murmurly::testing
