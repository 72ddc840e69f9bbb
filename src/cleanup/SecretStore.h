#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace murmurly {

// The desktop's secret storage: secrets addressed by (service, account). Calls are synchronous.
class SecretStore {
public:
    virtual ~SecretStore() = default;

    // False when no secret service can be reached, so the interface can say why keys cannot be
    // kept. Reads then give nothing and adds fail.
    virtual bool isAvailable() = 0;

    // The stored bytes; absent when there is no such item or the store cannot be read.
    virtual std::optional<QByteArray> read(const QString& service, const QString& account) = 0;
    // Adds an item; true exactly when it was stored.
    virtual bool add(const QString& service, const QString& account, const QByteArray& secret) = 0;
    // Deletes every item for (service, account); a missing item is not an error.
    virtual void remove(const QString& service, const QString& account) = 0;
};

} // namespace murmurly
