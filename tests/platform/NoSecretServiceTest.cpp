#include "PrivateSessionBus.h"
#include "cleanup/KeychainStore.h"
#include "platform/linux/LibsecretStore.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

using namespace murmurly;
using murmurly::testing::PrivateSessionBus;

// A session bus on which no Secret Service runs and none can be started: its own program, since
// the bus connection libsecret opens lasts as long as the process.
TEST(NoSecretService, ReadsAreAbsentSavesFailQuietlyAndTheConditionIsObservable) {
    PrivateSessionBus bus;
    ASSERT_TRUE(bus.isRunning()) << bus.error().toStdString();
    LibsecretStore secrets;
    KeychainStore keys(secrets);
    QElapsedTimer elapsed;
    elapsed.start();
    EXPECT_FALSE(keys.isAvailable());
    EXPECT_FALSE(keys.set(QStringLiteral("sk-ant-x"), QStringLiteral("anthropic-api-key")));
    EXPECT_EQ(keys.value(QStringLiteral("anthropic-api-key")), std::nullopt);
    keys.remove(QStringLiteral("anthropic-api-key"));
    EXPECT_LT(elapsed.elapsed(), 5000);
}
