#pragma once

#include "PrivateSessionBus.h"

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

namespace murmurly::testing {

// A gnome-keyring Secret Service on a private session bus (see PrivateSessionBus), for keyring
// tests; never the user's own session or keyring. The keyring keeps its files in a temporary
// home. Every wait is bounded; everything is stopped afterwards.
class PrivateKeyring {
public:
    PrivateKeyring();
    ~PrivateKeyring();
    PrivateKeyring(const PrivateKeyring&) = delete;
    PrivateKeyring& operator=(const PrivateKeyring&) = delete;

    // Empty when everything started; otherwise what went wrong.
    QString error() const { return m_error; }
    QString busAddress() const { return m_bus.address(); }
    // The process ids of the keyring daemon and of the bus daemon; 0 when one is not running.
    qint64 keyringProcessId() const { return m_keyring.processId(); }
    qint64 busProcessId() const { return m_bus.processId(); }

    // Object paths of the Secret Service items whose attributes include all of these, asked of
    // the service directly over D-Bus (locked and unlocked together); -1 when the call fails.
    int countItems(const QString& service, const QString& account) const;

private:
    bool startKeyring();
    bool waitForSecretService() const;

    // The bus outlives the keyring on it.
    PrivateSessionBus m_bus;
    QTemporaryDir m_dir;
    QProcess m_keyring;
    QString m_error;
};

} // namespace murmurly::testing
