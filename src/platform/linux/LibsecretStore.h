#pragma once

#include "cleanup/SecretStore.h"

namespace murmurly {

// Secrets in the desktop's Secret Service (gnome-keyring, KWallet's service, KeePassXC, …) through
// libsecret, in the default collection (the login keyring). Items use the generic schema with the
// attributes "service" and "account", so `secret-tool lookup service … account …` finds them.
// isAvailable() is bounded by its D-Bus call timeouts; read(), add() and remove() are not: they
// may wait as long as the keyring's unlock prompt stays open, so callers that must not freeze use
// readWithin(), which reads on a thread of its own.
class LibsecretStore final : public SecretStore {
public:
    // True when a Secret Service runs on the session bus or can be started by it.
    bool isAvailable() override;

    std::optional<QByteArray> read(const QString& service, const QString& account) override;
    QCoro::Task<std::optional<QByteArray>> readWithin(const QString& service, const QString& account,
                                                      std::chrono::milliseconds limit) override;
    bool add(const QString& service, const QString& account, const QByteArray& secret) override;
    void remove(const QString& service, const QString& account) override;
};

} // namespace murmurly
