#include "SilentUnixSocket.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace murmurly::testing {

SilentUnixSocket::SilentUnixSocket(const QByteArray& name, Namespace where) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const bool abstract = where == Namespace::abstract;
    const std::size_t room = sizeof address.sun_path - 1; // a NUL in front (abstract) or behind
    if (name.isEmpty() || std::size_t(name.size()) > room) {
        m_error = QStringLiteral("socket name too long");
        return;
    }
    std::memcpy(address.sun_path + (abstract ? 1 : 0), name.constData(), std::size_t(name.size()));
    // An abstract name is exactly as long as given: no terminating NUL is part of it.
    const socklen_t length = socklen_t(offsetof(sockaddr_un, sun_path) + (abstract ? 1 : 0) +
                                       std::size_t(name.size()) + (abstract ? 0 : 1));

    m_fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (m_fd < 0 || bind(m_fd, reinterpret_cast<sockaddr*>(&address), length) != 0 || listen(m_fd, 16) != 0) {
        m_error = QString::fromLocal8Bit(std::strerror(errno));
        if (m_fd >= 0) ::close(m_fd);
        m_fd = -1;
        return;
    }
    if (!abstract) m_path = name;
}

SilentUnixSocket::~SilentUnixSocket() {
    close();
}

void SilentUnixSocket::close() {
    if (m_fd < 0) return;
    ::close(m_fd);
    m_fd = -1;
    if (!m_path.isEmpty()) unlink(m_path.constData());
}

} // namespace murmurly::testing
