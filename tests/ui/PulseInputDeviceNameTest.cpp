// The current input as a private audio server describes it.
#include "platform/linux/PulseInputDeviceName.h"
#include "PrivatePulseServer.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

using namespace murmurly;
using murmurly::testing::NoPulseServer;
using murmurly::testing::PrivatePulseServer;

TEST(PulseInputDeviceName, NamesTheDefaultSourceByItsDescription) {
    PrivatePulseServer server(PrivatePulseServer::DefaultSource::sine);
    ASSERT_TRUE(server.isRunning()) << qPrintable(server.error());
    PulseInputDeviceName name;
    const std::optional<QString> answer = name.currentInputName();
    ASSERT_TRUE(answer.has_value());
    EXPECT_FALSE(answer->isEmpty());
    EXPECT_NE(*answer, QStringLiteral("murmurly_test_sine")); // a description, not the internal name
}

TEST(PulseInputDeviceName, AServerWithoutSourcesHasNoInput) {
    PrivatePulseServer server(PrivatePulseServer::DefaultSource::none);
    ASSERT_TRUE(server.isRunning()) << qPrintable(server.error());
    PulseInputDeviceName name;
    EXPECT_EQ(name.currentInputName(), std::nullopt);
}

TEST(PulseInputDeviceName, WithoutAnAudioServerThereIsNoInputAndNoLongWait) {
    NoPulseServer none;
    PulseInputDeviceName name;
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(name.currentInputName(), std::nullopt);
    EXPECT_LT(timer.elapsed(), 1500);
}
