#include "platform/linux/LibsecretStore.h"
#include "PrivateKeyring.h"
#include "cleanup/KeychainStore.h"

#include <gtest/gtest.h>

using namespace murmurly;
using murmurly::testing::PrivateKeyring;

namespace {

const QString account = QStringLiteral("anthropic-api-key");

// One private bus and keyring for the whole test program: the session bus connection that
// libsecret opens is kept for the life of the process.
PrivateKeyring* keyring = nullptr;

class KeyringEnvironment : public ::testing::Environment {
public:
    void SetUp() override { keyring = new PrivateKeyring; }
    void TearDown() override {
        delete keyring;
        keyring = nullptr;
    }
};

const auto* const environment = ::testing::AddGlobalTestEnvironment(new KeyringEnvironment);

class LibsecretStoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(keyring && keyring->error().isEmpty()) << (keyring ? keyring->error().toStdString() : "");
        keys.remove(account);
        keys.remove(QStringLiteral("openai-compatible-api-key"));
    }

    LibsecretStore secrets;
    KeychainStore keys{secrets};
};

} // namespace

TEST_F(LibsecretStoreTest, SecretServiceOnThePrivateBusIsAvailable) {
    EXPECT_TRUE(secrets.isAvailable());
}

TEST_F(LibsecretStoreTest, SavedKeyIsReadBack) {
    EXPECT_EQ(keys.value(account), std::nullopt);
    ASSERT_TRUE(keys.set(QStringLiteral("sk-ant-api03-abc"), account));
    EXPECT_EQ(keys.value(account), QStringLiteral("sk-ant-api03-abc"));
    EXPECT_EQ(keys.value(QStringLiteral("openai-compatible-api-key")), std::nullopt);
}

TEST_F(LibsecretStoreTest, TwoSavesInARowLeaveExactlyOneItem) {
    ASSERT_TRUE(keys.set(QStringLiteral("first"), account));
    ASSERT_TRUE(keys.set(QStringLiteral("second"), account));
    EXPECT_EQ(keyring->countItems(QStringLiteral("com.qv.murmurly"), account), 1);
    EXPECT_EQ(keys.value(account), QStringLiteral("second"));
}

TEST_F(LibsecretStoreTest, RemovedKeyIsGoneAndRemovingAgainIsHarmless) {
    ASSERT_TRUE(keys.set(QStringLiteral("k"), account));
    ASSERT_EQ(keyring->countItems(QStringLiteral("com.qv.murmurly"), account), 1);
    keys.remove(account);
    keys.remove(account);
    EXPECT_EQ(keyring->countItems(QStringLiteral("com.qv.murmurly"), account), 0);
    EXPECT_EQ(keys.value(account), std::nullopt);
}

TEST_F(LibsecretStoreTest, KeyOfOneSpaceAndEmptyKeyAreKeptExactly) {
    ASSERT_TRUE(keys.set(QStringLiteral(" "), account));
    EXPECT_EQ(keys.value(account), QStringLiteral(" "));
    ASSERT_TRUE(keys.set(QString(), account));
    const auto empty = keys.value(account);
    ASSERT_TRUE(empty.has_value());
    EXPECT_TRUE(empty->isEmpty());
}

TEST_F(LibsecretStoreTest, SecretIsStoredAsUtf8Bytes) {
    ASSERT_TRUE(keys.set(QString::fromUtf8("clé—🔑"), account));
    EXPECT_EQ(secrets.read(QStringLiteral("com.qv.murmurly"), account),
              QByteArray("cl\xc3\xa9\xe2\x80\x94\xf0\x9f\x94\x91"));
}

TEST_F(LibsecretStoreTest, ItemsOfAnotherServiceAreNotTouched) {
    ASSERT_TRUE(secrets.add(QStringLiteral("org.example.other"), account, "theirs"));
    ASSERT_TRUE(keys.set(QStringLiteral("ours"), account));
    keys.remove(account);
    EXPECT_EQ(secrets.read(QStringLiteral("org.example.other"), account), QByteArray("theirs"));
    secrets.remove(QStringLiteral("org.example.other"), account);
    EXPECT_EQ(keyring->countItems(QStringLiteral("org.example.other"), account), 0);
}
