#include "cleanup/KeychainStore.h"
#include "MemorySecretStore.h"

#include <gtest/gtest.h>

using namespace murmurly;
using murmurly::testing::MemorySecretStore;

namespace {
const QString account = QStringLiteral("anthropic-api-key");
}

TEST(KeychainStore, ItemsAreAddressedByTheFixedServiceAndTheAccount) {
    MemorySecretStore secrets;
    KeychainStore store(secrets);
    ASSERT_TRUE(store.set(QStringLiteral("sk-ant-123"), account));
    ASSERT_EQ(secrets.items.size(), 1);
    EXPECT_EQ(secrets.items[0].service, QStringLiteral("com.qv.murmurly"));
    EXPECT_EQ(secrets.items[0].account, account);
    EXPECT_EQ(secrets.items[0].secret, QByteArray("sk-ant-123"));
    EXPECT_EQ(store.value(account), QStringLiteral("sk-ant-123"));
    EXPECT_EQ(store.value(QStringLiteral("openai-compatible-api-key")), std::nullopt);
}

TEST(KeychainStore, TwoSavesInARowLeaveExactlyOneItem) {
    MemorySecretStore secrets;
    KeychainStore store(secrets);
    ASSERT_TRUE(store.set(QStringLiteral("first"), account));
    ASSERT_TRUE(store.set(QStringLiteral("second"), account));
    EXPECT_EQ(secrets.count(KeychainStore::service, account), 1);
    EXPECT_EQ(store.value(account), QStringLiteral("second"));
}

TEST(KeychainStore, KeyOfOneSpaceIsReturnedAsIs) {
    MemorySecretStore secrets;
    KeychainStore store(secrets);
    ASSERT_TRUE(store.set(QStringLiteral(" "), account));
    EXPECT_EQ(store.value(account), QStringLiteral(" "));
}

TEST(KeychainStore, EmptyKeyReadsAsEmptyNotAbsent) {
    MemorySecretStore secrets;
    KeychainStore store(secrets);
    ASSERT_TRUE(store.set(QString(), account));
    const auto value = store.value(account);
    ASSERT_TRUE(value.has_value());
    EXPECT_TRUE(value->isEmpty());
}

TEST(KeychainStore, SecretIsStoredAsUtf8) {
    MemorySecretStore secrets;
    KeychainStore store(secrets);
    ASSERT_TRUE(store.set(QString::fromUtf8("clé—🔑"), account));
    EXPECT_EQ(secrets.items[0].secret, QByteArray("cl\xc3\xa9\xe2\x80\x94\xf0\x9f\x94\x91"));
    EXPECT_EQ(store.value(account), QString::fromUtf8("clé—🔑"));
}

TEST(KeychainStore, BytesThatAreNotUtf8ReadAsAbsent) {
    MemorySecretStore secrets;
    secrets.items.append({KeychainStore::service, account, QByteArray("ab\xff\xfe")});
    EXPECT_EQ(KeychainStore(secrets).value(account), std::nullopt);
    secrets.items[0].secret = QByteArray("ab\xe2\x80"); // cut mid-character
    EXPECT_EQ(KeychainStore(secrets).value(account), std::nullopt);
}

TEST(KeychainStore, RemovalDeletesEveryItemOfTheAccountAndAMissingItemIsNoError) {
    MemorySecretStore secrets;
    secrets.items.append({KeychainStore::service, account, QByteArray("a")});
    secrets.items.append({KeychainStore::service, account, QByteArray("b")});
    secrets.items.append({QStringLiteral("other.service"), account, QByteArray("c")});
    KeychainStore store(secrets);
    store.remove(account);
    store.remove(account);
    EXPECT_EQ(secrets.count(KeychainStore::service, account), 0);
    EXPECT_EQ(secrets.items.size(), 1);
}

TEST(KeychainStore, WithoutASecretServiceReadsAreAbsentAndSavesFailQuietly) {
    MemorySecretStore secrets;
    secrets.available = false;
    KeychainStore store(secrets);
    EXPECT_FALSE(store.isAvailable());
    EXPECT_FALSE(store.set(QStringLiteral("key"), account));
    EXPECT_EQ(store.value(account), std::nullopt);
}
