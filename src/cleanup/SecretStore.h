#pragma once

#include <QByteArray>
#include <QCoro/QCoroTask>
#include <QString>

#include <chrono>
#include <optional>

namespace murmurly {

// The desktop's secret storage: secrets addressed by (service, account). Calls are synchronous,
// except readWithin().
class SecretStore {
public:
    virtual ~SecretStore() = default;

    // False when no secret service can be reached, so the interface can say why keys cannot be
    // kept. Reads then give nothing and adds fail.
    virtual bool isAvailable() = 0;

    // The stored bytes; absent when there is no such item or the store cannot be read.
    virtual std::optional<QByteArray> read(const QString& service, const QString& account) = 0;
    // read() for callers that must not wait long: absent when it has not answered within `limit`.
    // Stores that always answer at once need not do more than read().
    virtual QCoro::Task<std::optional<QByteArray>> readWithin(const QString& service, const QString& account,
                                                              std::chrono::milliseconds limit) {
        Q_UNUSED(limit);
        co_return read(service, account);
    }
    // Adds an item; true exactly when it was stored.
    virtual bool add(const QString& service, const QString& account, const QByteArray& secret) = 0;
    // Deletes every item for (service, account); a missing item is not an error.
    virtual void remove(const QString& service, const QString& account) = 0;
};

} // namespace murmurly
