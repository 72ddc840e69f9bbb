#include "cleanup/KeychainStore.h"

#include "cleanup/SecretStore.h"

#include <QStringDecoder>

namespace murmurly {

KeychainStore::KeychainStore(SecretStore& store)
    : m_store(store) {
}

namespace {

std::optional<QString> decoded(const std::optional<QByteArray>& bytes) {
    if (!bytes) return std::nullopt;
    QStringDecoder decoder(QStringDecoder::Utf8,
                           QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom);
    QString text = decoder.decode(*bytes);
    if (decoder.hasError()) return std::nullopt;
    return text;
}

} // namespace

std::optional<QString> KeychainStore::value(const QString& account) const {
    return decoded(m_store.read(service, account));
}

QCoro::Task<std::optional<QString>> KeychainStore::valueWithin(const QString& account,
                                                               std::chrono::milliseconds limit) const {
    co_return decoded(co_await m_store.readWithin(service, account, limit));
}

bool KeychainStore::set(const QString& value, const QString& account) {
    remove(account);
    return m_store.add(service, account, value.toUtf8());
}

void KeychainStore::remove(const QString& account) {
    m_store.remove(service, account);
}

bool KeychainStore::isAvailable() const {
    return m_store.isAvailable();
}

} // namespace murmurly
