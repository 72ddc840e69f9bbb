#pragma once

#include <QByteArray>
#include <QString>

namespace murmurly::testing {

// A server that hangs: a Unix socket that listens, so the kernel completes connections into its
// backlog, but is never read or written. Clients connect and then wait for an answer that never
// comes. Closing it (or destroying it) resets the waiting connections.
class SilentUnixSocket {
public:
    enum class Namespace { filesystem, abstract };

    // `name` is a file path, or for the abstract namespace the name without its leading NUL.
    SilentUnixSocket(const QByteArray& name, Namespace where);
    ~SilentUnixSocket();
    SilentUnixSocket(const SilentUnixSocket&) = delete;
    SilentUnixSocket& operator=(const SilentUnixSocket&) = delete;

    bool isListening() const { return m_fd >= 0; }
    QString error() const { return m_error; }
    void close();

private:
    int m_fd = -1;
    QByteArray m_path; // removed on close, for the file-system namespace
    QString m_error;
};

} // namespace murmurly::testing
