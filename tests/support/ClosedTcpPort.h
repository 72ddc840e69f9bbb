#pragma once

#include <QtGlobal>

namespace murmurly::testing {

// A port on 127.0.0.1 that refuses connections for as long as this object lives: the socket is bound
// but never listens, so nothing else (another test process included) can take the port meanwhile.
class ClosedTcpPort {
public:
    ClosedTcpPort();
    ~ClosedTcpPort();
    ClosedTcpPort(const ClosedTcpPort&) = delete;
    ClosedTcpPort& operator=(const ClosedTcpPort&) = delete;

    bool isHeld() const { return m_port != 0; }
    quint16 port() const { return m_port; }

private:
    int m_fd = -1;
    quint16 m_port = 0;
};

} // namespace murmurly::testing
