#include "SilentUnixSocket.h"
#include "WaitUntil.h"
#include "XvfbServer.h"
#include "platform/linux/LinuxPermissions.h"

#include <QElapsedTimer>
#include <QFile>

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <optional>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

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

// An X server that vanishes mid-question: a go-between on a display of its own passes a client's
// connection through to `serverDisplay` until the client asks for the XInput extension, and then
// drops both sides of it.
class VanishingXServer {
public:
    explicit VanishingXServer(const QByteArray& serverDisplay)
        : m_serverPath("/tmp/.X11-unix/X" + serverDisplay.mid(1)) {
        // Reached through the abstract socket name Xlib tries first for a local display, on numbers
        // apart from those of the other tests.
        for (int number = 64000; number < 64500 && m_listening < 0; ++number) {
            if (QFile::exists(QStringLiteral("/tmp/.X%1-lock").arg(number)) ||
                QFile::exists(QStringLiteral("/tmp/.X11-unix/X%1").arg(number)))
                continue;
            const QByteArray name = "/tmp/.X11-unix/X" + QByteArray::number(number);
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            std::memcpy(address.sun_path + 1, name.constData(), std::size_t(name.size()));
            const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            if (fd < 0) break;
            const auto length = socklen_t(offsetof(sockaddr_un, sun_path) + 1 + std::size_t(name.size()));
            if (bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0 || listen(fd, 4) != 0) {
                ::close(fd);
                continue;
            }
            m_listening = fd;
            m_displayName = ':' + QByteArray::number(number);
        }
        m_wake = eventfd(0, EFD_CLOEXEC);
        if (m_listening >= 0 && m_wake >= 0) m_thread = std::thread([this] { run(); });
    }
    ~VanishingXServer() {
        const std::uint64_t one = 1;
        if (m_wake >= 0) (void)!write(m_wake, &one, sizeof one);
        if (m_thread.joinable()) m_thread.join();
        if (m_listening >= 0) ::close(m_listening);
        if (m_wake >= 0) ::close(m_wake);
    }

    bool isListening() const { return m_thread.joinable(); }
    QByteArray displayName() const { return m_displayName; }
    // Whether a client's connection was dropped at its question.
    bool hasVanished() const { return m_vanished; }

private:
    void run() {
        int client = -1;
        int server = -1;
        QByteArray fromClient;
        auto dropBoth = [&] {
            if (client >= 0) ::close(client);
            if (server >= 0) ::close(server);
            client = server = -1;
        };
        for (;;) {
            pollfd fds[3] = {
                {m_wake, POLLIN, 0}, {client >= 0 ? client : m_listening, POLLIN, 0}, {server, POLLIN, 0}};
            if (poll(fds, server >= 0 ? 3 : 2, 10000) <= 0 || fds[0].revents) break;
            if (client < 0) {
                client = accept4(m_listening, nullptr, nullptr, SOCK_CLOEXEC);
                server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
                sockaddr_un address{};
                address.sun_family = AF_UNIX;
                std::memcpy(address.sun_path, m_serverPath.constData(), std::size_t(m_serverPath.size()));
                if (client < 0 || server < 0 ||
                    ::connect(server, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
                    dropBoth();
                fromClient.clear();
                continue;
            }
            char buffer[4096];
            if (fds[1].revents) {
                const ssize_t got = read(client, buffer, sizeof buffer);
                if (got <= 0) {
                    dropBoth();
                    continue;
                }
                fromClient.append(buffer, got);
                if (fromClient.contains("XInputExtension")) {
                    m_vanished = true;
                    dropBoth();
                    continue;
                }
                if (write(server, buffer, std::size_t(got)) != got) dropBoth();
                continue;
            }
            if (fds[2].revents) {
                const ssize_t got = read(server, buffer, sizeof buffer);
                if (got <= 0 || write(client, buffer, std::size_t(got)) != got) dropBoth();
            }
        }
        dropBoth();
    }

    const QByteArray m_serverPath;
    QByteArray m_displayName;
    int m_listening = -1;
    int m_wake = -1;
    std::atomic<bool> m_vanished{false};
    std::thread m_thread;
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
    XvfbServer second(XvfbServer::Numbering::keptAfterKill);
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
        // Only the limit ends the wait for a server that never answers; the margin is wide so
        // that a loaded machine cannot fail it, while a missing limit still would.
        EXPECT_LT(first, LinuxPermissions::keyboardCheckLimit.count() + 5000);
        // The unanswered check is not joined by another one: the next read answers before a
        // wait of the full limit could have ended.
        timer.restart();
        EXPECT_FALSE(permissions.keyboardAccess());
        EXPECT_LT(timer.elapsed(), LinuxPermissions::keyboardCheckLimit.count());
    }
    // Once the hanging server is gone the pending check ends, and checks work again.
    silent.reset();
    EXPECT_TRUE(waitUntil([&] { return permissions.keyboardAccess(); }, 20s));
}

TEST(LinuxKeyboardAccess, DeniedWhenTheXServerVanishesMidQuestion) {
    VanishingXServer vanishing(qgetenv("DISPLAY"));
    ASSERT_TRUE(vanishing.isListening());
    LinuxPermissions permissions;
    {
        ScopedDisplay display(vanishing.displayName());
        // Xlib's usual answer to a lost server is to end the process; the check answers instead.
        EXPECT_FALSE(permissions.keyboardAccess());
        EXPECT_TRUE(vanishing.hasVanished()) << "the connection was not dropped at the question";
    }
    EXPECT_TRUE(permissions.keyboardAccess());
}
