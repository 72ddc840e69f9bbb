#pragma once

#include <QCoro/QCoroTask>
#include <QString>

#include <chrono>
#include <optional>

namespace murmurly {

class SecretStore;

// API keys in the login keyring under the service "com.qv.murmurly", one account per provider,
// each key stored as the UTF-8 bytes of its text. Failures are never shown: a failed read is no
// key, a failed save returns false, a failed delete is ignored.
class KeychainStore {
public:
    static inline const QString service = QStringLiteral("com.qv.murmurly");

    explicit KeychainStore(SecretStore& store);

    // Absent when there is no item, it cannot be read, or its bytes are not valid UTF-8. An empty
    // stored key reads as the empty string.
    std::optional<QString> value(const QString& account) const;
    // value() without holding up the caller for more than `limit`: a keyring that waits for the
    // user to unlock it, or does not answer, counts as holding no key.
    QCoro::Task<std::optional<QString>> valueWithin(const QString& account,
                                                    std::chrono::milliseconds limit) const;
    // Always delete then add, never an update in place, so at most one item exists per account.
    bool set(const QString& value, const QString& account);
    void remove(const QString& account);

    bool isAvailable() const;

private:
    SecretStore& m_store;
};

} // namespace murmurly
