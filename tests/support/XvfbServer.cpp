#include "XvfbServer.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace murmurly::testing {

namespace {

constexpr int startTimeoutMilliseconds = 30000;

// Waits up to `milliseconds` for the child to end; true when it did.
bool reap(pid_t pid, int milliseconds) {
    for (int waited = 0; waited <= milliseconds; waited += 10) {
        int status = 0;
        const pid_t result = waitpid(pid, &status, WNOHANG);
        if (result == pid || (result < 0 && errno == ECHILD)) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

} // namespace

XvfbServer::XvfbServer(Numbering numbering) {
    if (numbering == Numbering::lowestFree) {
        if (!launch({}) && m_error.isEmpty())
            m_error = QStringLiteral("Xvfb did not report a display number in time (is it installed?)");
        return;
    }
    // Kept numbers come from their own range, apart from unusedDisplayName()'s; the starting point
    // differs per process so that parallel tests rarely try the same one (a taken number makes
    // Xvfb exit at once, and the next is tried).
    constexpr int first = 61000;
    constexpr int count = 3000;
    const int offset = static_cast<int>(getpid() % count);
    for (int tried = 0; tried < 20; ++tried) {
        const QByteArray number = QByteArray::number(first + (offset + tried) % count);
        if (access(("/tmp/.X" + number + "-lock").constData(), F_OK) == 0 ||
            access(("/tmp/.X11-unix/X" + number).constData(), F_OK) == 0)
            continue;
        if (launch(number)) {
            m_keptLock = "/tmp/.X" + number + "-lock";
            return;
        }
        if (!m_error.isEmpty()) return;
    }
    m_error = QStringLiteral("Xvfb could not start on a number of its own (is it installed?)");
}

bool XvfbServer::launch(const QByteArray& number) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        m_error = QStringLiteral("pipe failed");
        return false;
    }
    const int devNull = open("/dev/null", O_RDWR | O_CLOEXEC);
    const QByteArray fdText = QByteArray::number(fds[1]);
    const QByteArray display = ':' + number;
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) {
        // The server must not outlive a test that crashes, nor one that died before this request.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(127);
        fcntl(fds[1], F_SETFD, 0); // the display number is written here
        dup2(devNull, 0);
        dup2(devNull, 1);
        dup2(devNull, 2);
        if (number.isEmpty())
            execlp("Xvfb", "Xvfb", "-displayfd", fdText.constData(), "-screen", "0", "1280x800x24",
                   "-nolisten", "tcp", "-noreset", static_cast<char*>(nullptr));
        else
            execlp("Xvfb", "Xvfb", display.constData(), "-displayfd", fdText.constData(), "-screen", "0",
                   "1280x800x24", "-nolisten", "tcp", "-noreset", static_cast<char*>(nullptr));
        _exit(127);
    }
    close(fds[1]);
    if (devNull >= 0) close(devNull);
    if (pid < 0) {
        close(fds[0]);
        m_error = QStringLiteral("fork failed");
        return false;
    }
    m_pid = pid;

    QByteArray reported;
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(startTimeoutMilliseconds);
    while (!reported.endsWith('\n')) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd fd{fds[0], POLLIN, 0};
        if (left.count() <= 0 || poll(&fd, 1, static_cast<int>(left.count())) <= 0) break;
        char buffer[16];
        const ssize_t got = read(fds[0], buffer, sizeof buffer);
        if (got <= 0) break; // the server ended (a taken number) before reporting
        reported.append(buffer, got);
    }
    close(fds[0]);
    if (!reported.endsWith('\n')) {
        kill();
        return false;
    }
    m_displayName = ':' + reported.trimmed();
    return true;
}

QByteArray XvfbServer::unusedDisplayName() {
    for (int number = 60000; number < 65000; ++number) {
        const QByteArray lock = "/tmp/.X" + QByteArray::number(number) + "-lock";
        const QByteArray socket = "/tmp/.X11-unix/X" + QByteArray::number(number);
        if (access(lock.constData(), F_OK) != 0 && access(socket.constData(), F_OK) != 0)
            return ':' + QByteArray::number(number);
    }
    return ":65000";
}

XvfbServer::~XvfbServer() {
    kill();
    releaseKeptNumber();
}

void XvfbServer::kill() {
    if (m_pid <= 0) return;
    ::kill(m_pid, SIGTERM);
    if (!reap(m_pid, 3000)) {
        ::kill(m_pid, SIGKILL);
        reap(m_pid, 3000);
    }
    m_pid = -1;
    // The server removed its lock as it ended; a lock naming this (living) process keeps any other
    // server off the number, so the display stays dead for as long as the test needs.
    if (!m_keptLock.isEmpty()) {
        const int fd = open(m_keptLock.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0444);
        if (fd >= 0) {
            char text[16];
            const int length = snprintf(text, sizeof text, "%10d\n", static_cast<int>(getpid()));
            if (write(fd, text, static_cast<size_t>(length)) != length)
                m_error = QStringLiteral("lock not written");
            close(fd);
            m_ownsLock = true;
        }
    }
}

void XvfbServer::releaseKeptNumber() {
    if (m_ownsLock) unlink(m_keptLock.constData());
    m_ownsLock = false;
}

} // namespace murmurly::testing
