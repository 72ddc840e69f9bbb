// Notifications against a real notification server (dunst) on the test's own X server and
// session bus.
#include "app/FreedesktopNotifications.h"
#include "LogCapture.h"
#include "PrivateNotificationServer.h"
#include "PrivateSessionBus.h"
#include "TextFieldWindowProcess.h"
#include "WaitUntil.h"
#include "XTestKeyboard.h"

#include <QDBusConnection>

#include <gtest/gtest.h>

#include <X11/keysym.h>

using namespace murmurly;
using namespace murmurly::testing;
using namespace std::chrono_literals;
using Slot = Notifications::Slot;

namespace {

const QString cleanupFailed =
    QStringLiteral("\u26A0\uFE0E Cleanup failed \u2014 inserted the raw transcript.");

class FreedesktopNotificationsTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(bus.isRunning()) << qPrintable(bus.error());
        ASSERT_TRUE(server.isRunning()) << qPrintable(server.error());
        ASSERT_TRUE(connection.isConnected());
    }
    void TearDown() override { QDBusConnection::disconnectFromBus(QStringLiteral("murmurly-side")); }

    // Shows `body` and waits until the server took it.
    bool showAndWait(FreedesktopNotifications& notifications, Slot slot, const QString& body) {
        bool delivered = false;
        notifications.show(slot, body, [&] { delivered = true; });
        return waitUntil([&] { return delivered; });
    }

    PrivateSessionBus bus;
    PrivateNotificationServer server{bus.address()};
    QDBusConnection connection =
        QDBusConnection::connectToBus(bus.address(), QStringLiteral("murmurly-side"));
};

} // namespace

TEST_F(FreedesktopNotificationsTest, AMessageReachesTheServerWithTheProgramsNameAndItsExactText) {
    FreedesktopNotifications notifications(connection);
    ASSERT_TRUE(showAndWait(notifications, Slot::message, cleanupFailed));
    EXPECT_EQ(server.displayedCount(), 1u);
    const auto history = server.closeAllAndListHistory();
    ASSERT_TRUE(history.has_value());
    ASSERT_EQ(history->size(), 1);
    EXPECT_EQ(history->at(0).value(QStringLiteral("appname")).toString(), QStringLiteral("Murmurly"));
    EXPECT_EQ(history->at(0).value(QStringLiteral("summary")).toString(), QStringLiteral("Murmurly"));
    EXPECT_EQ(history->at(0).value(QStringLiteral("body")).toString(), cleanupFailed);
}

TEST_F(FreedesktopNotificationsTest, AMessageReplacesTheOneBeforeItEvenWhenSentBeforeTheAnswer) {
    FreedesktopNotifications notifications(connection);
    // The second goes out before the server has answered the first.
    notifications.show(Slot::message, QStringLiteral("first"));
    ASSERT_TRUE(showAndWait(notifications, Slot::message, QStringLiteral("second")));
    ASSERT_TRUE(showAndWait(notifications, Slot::message, QStringLiteral("third")));
    EXPECT_TRUE(waitUntil([&] { return !notifications.isBusy(); }));
    EXPECT_EQ(server.displayedCount(), 1u);
    const auto history = server.closeAllAndListHistory();
    ASSERT_TRUE(history.has_value());
    ASSERT_EQ(history->size(), 1);
    EXPECT_EQ(history->at(0).value(QStringLiteral("body")).toString(), QStringLiteral("third"));
}

TEST_F(FreedesktopNotificationsTest, ARecordingNoticeIsTakenAwayWhenWithdrawn) {
    FreedesktopNotifications notifications(connection);
    ASSERT_TRUE(showAndWait(notifications, Slot::recording, QStringLiteral("Recording\u2026")));
    EXPECT_EQ(server.displayedCount(), 1u);
    notifications.withdraw(Slot::recording);
    EXPECT_TRUE(waitUntil([&] { return server.displayedCount() == 0u; }));
}

TEST_F(FreedesktopNotificationsTest, ARecordingNoticeWithdrawnBeforeTheServerAnsweredIsStillTakenAway) {
    FreedesktopNotifications notifications(connection);
    // Once the server's capabilities are known, a notice goes out at once.
    ASSERT_TRUE(showAndWait(notifications, Slot::message, cleanupFailed));
    bool delivered = false;
    notifications.show(Slot::recording, QStringLiteral("Recording\u2026"), [&] { delivered = true; });
    ASSERT_TRUE(notifications.isBusy());
    notifications.withdraw(Slot::recording);
    ASSERT_TRUE(waitUntil([&] { return delivered; }));
    // It never expires by itself: only the withdrawal can have taken it away.
    EXPECT_TRUE(waitUntil([&] { return server.displayedCount() == 1u; }));
    EXPECT_EQ(notifications.notificationId(Slot::recording), 0u);
}

TEST_F(FreedesktopNotificationsTest, ClickingAMessageRunsItsAction) {
    FreedesktopNotifications notifications(connection);
    int activations = 0;
    notifications.onActivated = [&] { ++activations; };
    ASSERT_TRUE(showAndWait(notifications, Slot::message, cleanupFailed));
    ASSERT_TRUE(server.activateNewest());
    EXPECT_TRUE(waitUntil([&] { return activations == 1; }));
}

TEST_F(FreedesktopNotificationsTest, NotificationsLeaveTheKeyboardFocusWhereItWas) {
    TextFieldWindowProcess window;
    ASSERT_TRUE(window.isReady());
    XTestKeyboard keyboard;
    ASSERT_TRUE(keyboard.isOpen());
    FreedesktopNotifications notifications(connection);
    ASSERT_TRUE(showAndWait(notifications, Slot::recording, QStringLiteral("Recording\u2026")));
    ASSERT_TRUE(showAndWait(notifications, Slot::message, cleanupFailed));
    ASSERT_EQ(server.displayedCount(), 2u);
    // What is typed now still reaches the window that had the focus.
    keyboard.tap(XK_q);
    EXPECT_TRUE(window.waitForText(QStringLiteral("q")));
}

TEST(FreedesktopNotificationsWithoutServer, NothingIsDeliveredNothingWaitsAndOneLineIsLogged) {
    PrivateSessionBus bus;
    ASSERT_TRUE(bus.isRunning()) << qPrintable(bus.error());
    QDBusConnection connection = QDBusConnection::connectToBus(bus.address(), QStringLiteral("no-server"));
    {
        LogCapture log;
        FreedesktopNotifications notifications(connection);
        bool delivered = false;
        notifications.show(Slot::message, cleanupFailed, [&] { delivered = true; });
        notifications.show(Slot::recording, QStringLiteral("Recording\u2026"), [&] { delivered = true; });
        EXPECT_TRUE(waitUntil([&] { return !notifications.isBusy(); }));
        notifications.show(Slot::message, cleanupFailed, [&] { delivered = true; });
        EXPECT_TRUE(waitUntil([&] { return !notifications.isBusy(); }));
        EXPECT_FALSE(delivered);
        ASSERT_EQ(log.appMessages().size(), 1);
        EXPECT_TRUE(
            log.appMessages()[0].startsWith(QStringLiteral("Desktop notifications are not available: ")));
    }
    QDBusConnection::disconnectFromBus(QStringLiteral("no-server"));
}
