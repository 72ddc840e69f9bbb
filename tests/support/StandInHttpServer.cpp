#include "StandInHttpServer.h"

#include <QHostAddress>
#include <QPointer>
#include <QTcpSocket>
#include <QTimer>

#include <sys/socket.h>

#include <memory>

namespace murmurly::testing {

namespace {

QByteArray reasonPhrase(int status) {
    switch (status) {
    case 200:
        return "OK";
    case 201:
        return "Created";
    case 301:
        return "Moved Permanently";
    case 302:
        return "Found";
    case 307:
        return "Temporary Redirect";
    case 308:
        return "Permanent Redirect";
    case 400:
        return "Bad Request";
    case 401:
        return "Unauthorized";
    case 404:
        return "Not Found";
    case 429:
        return "Too Many Requests";
    case 500:
        return "Internal Server Error";
    case 529:
        return "Overloaded";
    default:
        return "Status";
    }
}

// Closing with a zero linger time sends a TCP reset instead of an orderly end of stream.
void reset(QTcpSocket* socket) {
    const linger hard{1, 0};
    ::setsockopt(static_cast<int>(socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    socket->abort();
}

} // namespace

QByteArray StandInHttpServer::Request::header(const QByteArray& name) const {
    for (const auto& [key, value] : headers)
        if (key.compare(name, Qt::CaseInsensitive) == 0) return value;
    return {};
}

QList<QByteArray> StandInHttpServer::Request::headerNames() const {
    QList<QByteArray> names;
    for (const auto& header : headers)
        names.append(header.first);
    return names;
}

StandInHttpServer::StandInHttpServer(QObject* parent)
    : QObject(parent) {
    connect(&m_server, &QTcpServer::newConnection, this, &StandInHttpServer::accept);
}

StandInHttpServer::~StandInHttpServer() {
    for (QTcpSocket* socket : m_buffers.keys())
        socket->abort();
}

bool StandInHttpServer::start() {
    return m_server.listen(QHostAddress::LocalHost, 0);
}

QString StandInHttpServer::url(const QString& path) const {
    return QStringLiteral("http://127.0.0.1:%1").arg(port()) + path;
}

void StandInHttpServer::setJsonResponse(int status, const QByteArray& body) {
    Response response;
    response.status = status;
    response.body = body;
    m_response = response;
}

void StandInHttpServer::accept() {
    while (QTcpSocket* socket = m_server.nextPendingConnection()) {
        socket->setParent(this);
        ++m_acceptedConnections;
        m_buffers.insert(socket, {});
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { readFrom(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            ++m_closedConnections;
            m_buffers.remove(socket);
            socket->deleteLater();
        });
    }
}

void StandInHttpServer::readFrom(QTcpSocket* socket) {
    if (!m_buffers.contains(socket)) return;
    QByteArray& buffer = m_buffers[socket];
    buffer += socket->readAll();
    const qsizetype headEnd = buffer.indexOf("\r\n\r\n");
    if (headEnd < 0) return;

    Request request;
    const QList<QByteArray> lines = buffer.left(headEnd).split('\n');
    const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
    request.method = requestLine.value(0);
    request.path = requestLine.value(1);
    qint64 contentLength = 0;
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QByteArray line = lines[i].trimmed();
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0) continue;
        const QByteArray name = line.left(colon).trimmed();
        const QByteArray value = line.mid(colon + 1).trimmed();
        request.headers.append({name, value});
        if (name.compare("Content-Length", Qt::CaseInsensitive) == 0) contentLength = value.toLongLong();
    }
    if (buffer.size() - (headEnd + 4) < contentLength) return; // the body is still arriving
    request.body = buffer.mid(headEnd + 4, contentLength);
    buffer.clear();

    m_requests.append(request);
    const Response response = m_responder ? m_responder(request) : m_response;
    emit requestReceived();
    if (response.stall) return;
    if (response.delayMilliseconds > 0) {
        QPointer<QTcpSocket> guarded(socket);
        QTimer::singleShot(response.delayMilliseconds, this, [this, guarded, response] {
            if (guarded) answer(guarded, response);
        });
    } else {
        answer(socket, response);
    }
}

void StandInHttpServer::answer(QTcpSocket* socket, const Response& response) {
    QByteArray body = response.body;
    if (response.bodySize > 0) {
        body = body.left(response.bodySize);
        body.append(QByteArray(response.bodySize - body.size(), 'x'));
    }
    QByteArray head =
        "HTTP/1.1 " + QByteArray::number(response.status) + ' ' + reasonPhrase(response.status) + "\r\n";
    head += "Content-Type: " + response.contentType + "\r\n";
    for (const auto& [name, value] : response.headers)
        head += name + ": " + value + "\r\n";
    head += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    head += "Connection: close\r\n\r\n";
    socket->write(head);

    if (response.dripIntervalMilliseconds > 0) {
        socket->flush();
        drip(socket, body, response.dripIntervalMilliseconds);
        return;
    }
    if (response.resetAfterBodyBytes >= 0) {
        socket->write(body.left(response.resetAfterBodyBytes));
        socket->flush();
        // Give the partial body time to reach the client before the reset.
        QPointer<QTcpSocket> guarded(socket);
        QTimer::singleShot(50, this, [guarded] {
            if (guarded) reset(guarded);
        });
        return;
    }
    socket->write(response.closeAfterBodyBytes >= 0 ? body.left(response.closeAfterBodyBytes) : body);
    socket->disconnectFromHost();
}

void StandInHttpServer::drip(QTcpSocket* socket, QByteArray body, int intervalMilliseconds) {
    // The timer belongs to the socket, so a client that gives up ends the drip with it.
    auto* timer = new QTimer(socket);
    timer->setInterval(intervalMilliseconds);
    auto sent = std::make_shared<qsizetype>(0);
    connect(timer, &QTimer::timeout, socket, [socket, timer, body, sent] {
        if (*sent >= body.size()) {
            timer->stop();
            socket->disconnectFromHost();
            return;
        }
        socket->write(body.mid((*sent)++, 1));
        socket->flush();
    });
    timer->start();
}

} // namespace murmurly::testing
