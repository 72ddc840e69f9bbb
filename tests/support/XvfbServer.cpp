#include "XvfbServer.h"

#include <cerrno>
#include <chrono>
#include <csignal>
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

XvfbServer::XvfbServer() {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        m_error = QStringLiteral("pipe failed");
        return;
    }
    const int devNull = open("/dev/null", O_RDWR | O_CLOEXEC);
    const QByteArray fdText = QByteArray::number(fds[1]);
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
        execlp("Xvfb", "Xvfb", "-displayfd", fdText.constData(), "-screen", "0", "1280x800x24", "-nolisten",
               "tcp", "-noreset", static_cast<char*>(nullptr));
        _exit(127);
    }
    close(fds[1]);
    if (devNull >= 0) close(devNull);
    if (pid < 0) {
        close(fds[0]);
        m_error = QStringLiteral("fork failed");
        return;
    }
    m_pid = pid;

    QByteArray number;
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(startTimeoutMilliseconds);
    while (!number.endsWith('\n')) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd fd{fds[0], POLLIN, 0};
        if (left.count() <= 0 || poll(&fd, 1, static_cast<int>(left.count())) <= 0) break;
        char buffer[16];
        const ssize_t got = read(fds[0], buffer, sizeof buffer);
        if (got <= 0) break;
        number.append(buffer, got);
    }
    close(fds[0]);
    if (!number.endsWith('\n')) {
        m_error = QStringLiteral("Xvfb did not report a display number in time (is it installed?)");
        kill();
        return;
    }
    m_displayName = ':' + number.trimmed();
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
}

void XvfbServer::kill() {
    if (m_pid <= 0) return;
    ::kill(m_pid, SIGTERM);
    if (!reap(m_pid, 3000)) {
        ::kill(m_pid, SIGKILL);
        reap(m_pid, 3000);
    }
    m_pid = -1;
}

} // namespace murmurly::testing
