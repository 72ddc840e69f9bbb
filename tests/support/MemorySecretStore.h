#pragma once

#include "cleanup/SecretStore.h"

#include <QList>

namespace murmurly::testing {

// Secrets in memory. Like a real secret service it can hold several items for one
// (service, account); `available` false makes it behave as if no service were running.
class MemorySecretStore final : public SecretStore {
public:
    struct Item {
        QString service;
        QString account;
        QByteArray secret;
    };

    bool available = true;
    QList<Item> items;
    // How often the store was read with read(), which may wait without limit, and with the
    // bounded readWithin().
    int unboundedReads = 0;
    int boundedReads = 0;

    bool isAvailable() override { return available; }

    std::optional<QByteArray> read(const QString& service, const QString& account) override {
        ++unboundedReads;
        return find(service, account);
    }

    QCoro::Task<std::optional<QByteArray>> readWithin(const QString& service, const QString& account,
                                                      std::chrono::milliseconds) override {
        ++boundedReads;
        co_return find(service, account);
    }

    std::optional<QByteArray> find(const QString& service, const QString& account) const {
        if (!available) return std::nullopt;
        for (const Item& item : items)
            if (item.service == service && item.account == account) return item.secret;
        return std::nullopt;
    }

    bool add(const QString& service, const QString& account, const QByteArray& secret) override {
        if (!available) return false;
        items.append({service, account, secret});
        return true;
    }

    void remove(const QString& service, const QString& account) override {
        if (!available) return;
        items.removeIf([&](const Item& item) { return item.service == service && item.account == account; });
    }

    qsizetype count(const QString& service, const QString& account) const {
        qsizetype n = 0;
        for (const Item& item : items)
            if (item.service == service && item.account == account) ++n;
        return n;
    }
};

} // namespace murmurly::testing
