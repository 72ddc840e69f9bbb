#include "ClosedTcpPort.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace murmurly::testing {

ClosedTcpPort::ClosedTcpPort() {
    m_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (m_fd < 0) return;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0; // the kernel picks a free one
    socklen_t length = sizeof address;
    if (bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        return;
    m_port = ntohs(address.sin_port);
}

ClosedTcpPort::~ClosedTcpPort() {
    if (m_fd >= 0) close(m_fd);
}

} // namespace murmurly::testing
