#include "SilentUnixSocket.h"
#include "WaitUntil.h"
#include "XvfbServer.h"
#include "platform/linux/LinuxPermissions.h"

#include <QElapsedTimer>
#include <QFile>

#include <gtest/gtest.h>

#include <optional>

using namespace murmurly;
using namespace murmurly::testing;
using namespace std::chrono_literals;

namespace {

// Points DISPLAY elsewhere for the life of the object; the test process's own server (and the Qt
// connection to it) stay as they are.
class ScopedDisplay {
public:
    explicit ScopedDisplay(const QByteArray& name)
        : m_saved(qgetenv("DISPLAY")) {
        qputenv("DISPLAY", name);
    }
    ~ScopedDisplay() { qputenv("DISPLAY", m_saved); }

private:
    QByteArray m_saved;
};

} // namespace

TEST(LinuxKeyboardAccess, GrantedOnAnXServerWithXInput2AndXTest) {
    // The private Xvfb of this test process is DISPLAY; Xvfb has both extensions.
    LinuxPermissions permissions;
    EXPECT_TRUE(permissions.keyboardAccess());
    EXPECT_TRUE(permissions.requestKeyboardAccess());
    // Asked afresh each time, with the same answer.
    EXPECT_TRUE(permissions.keyboardAccess());
}

TEST(LinuxKeyboardAccess, DeniedAtOnceWhenNoXServerAnswersToDisplay) {
    ScopedDisplay nowhere(XvfbServer::unusedDisplayName());
    LinuxPermissions permissions;
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(permissions.keyboardAccess());
    EXPECT_FALSE(permissions.requestKeyboardAccess());
    EXPECT_LT(timer.elapsed(), 1000);
}

TEST(LinuxKeyboardAccess, DeniedWithoutDisplay) {
    const QByteArray saved = qgetenv("DISPLAY");
    qunsetenv("DISPLAY");
    LinuxPermissions permissions;
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(permissions.keyboardAccess());
    EXPECT_LT(timer.elapsed(), 1000);
    qputenv("DISPLAY", saved);
}

TEST(LinuxKeyboardAccess, FollowsTheXServerGoingAway) {
    XvfbServer second;
    ASSERT_TRUE(second.isRunning()) << qPrintable(second.error());
    ScopedDisplay display(second.displayName());
    LinuxPermissions permissions;
    ASSERT_TRUE(permissions.keyboardAccess());

    second.kill();
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(permissions.keyboardAccess());
    EXPECT_LT(timer.elapsed(), 1000);
}

TEST(LinuxKeyboardAccess, DeniedWithinTheLimitWhenTheXServerNeverAnswers) {
    // An X server that takes the connection and never sends its greeting, reached through the
    // abstract socket name that Xlib tries first for a local display.
    // The number is kept apart from XvfbServer::unusedDisplayName()'s, which other tests expect
    // to fail at once.
    QByteArray display;
    std::optional<SilentUnixSocket> silent;
    for (int number = 64500; number < 65000 && !(silent && silent->isListening()); ++number) {
        const QByteArray digits = QByteArray::number(number);
        if (QFile::exists(QStringLiteral("/tmp/.X%1-lock").arg(number)) ||
            QFile::exists(QStringLiteral("/tmp/.X11-unix/X%1").arg(number)))
            continue;
        silent.emplace("/tmp/.X11-unix/X" + digits, SilentUnixSocket::Namespace::abstract);
        display = ':' + digits;
    }
    ASSERT_TRUE(silent && silent->isListening()) << qPrintable(silent ? silent->error() : QString());
    LinuxPermissions permissions;
    {
        ScopedDisplay hanging(display);
        QElapsedTimer timer;
        timer.start();
        EXPECT_FALSE(permissions.keyboardAccess());
        const qint64 first = timer.elapsed();
        EXPECT_GE(first, LinuxPermissions::keyboardCheckLimit.count() - 50); // it did wait for the server
        EXPECT_LT(first, LinuxPermissions::keyboardCheckLimit.count() + 500);
        // The unanswered check is not joined by another one: the next read answers at once.
        timer.restart();
        EXPECT_FALSE(permissions.keyboardAccess());
        EXPECT_LT(timer.elapsed(), 100);
    }
    // Once the hanging server is gone the pending check ends, and checks work again.
    silent.reset();
    EXPECT_TRUE(waitUntil([&] { return permissions.keyboardAccess(); }, 5s));
}
