#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPair>
#include <QTcpServer>
#include <QUrl>

#include <functional>

class QTcpSocket;

namespace murmurly::testing {

// An HTTP/1.1 server on 127.0.0.1 standing in for a provider's API. It records every request
// (method, path, headers in the order sent, body) and answers each with the Response the test
// chose: any status, headers and body, a body of any size, a delay, a stall that never answers, a
// body dripped one byte at a time, or a connection reset or closed part-way through the body. One request
// per connection; answers close it.
class StandInHttpServer : public QObject {
    Q_OBJECT

public:
    struct Request {
        QByteArray method;
        QByteArray path;
        QList<QPair<QByteArray, QByteArray>> headers;
        QByteArray body;

        // The first header of that name (names compare case-insensitively), or empty.
        QByteArray header(const QByteArray& name) const;
        QList<QByteArray> headerNames() const;
    };

    struct Response {
        int status = 200;
        QByteArray body;
        // When positive, the body is this many bytes instead: `body` followed by 'x' padding.
        qint64 bodySize = 0;
        int delayMilliseconds = 0;
        // Never answer, keeping the connection open.
        bool stall = false;
        // When not negative: announce the full length, send this many body bytes, then reset.
        qint64 resetAfterBodyBytes = -1;
        // When not negative: announce the full length, send this many body bytes, then end the
        // connection in order, as a server process that exits part-way through would.
        qint64 closeAfterBodyBytes = -1;
        // When positive: announce the full length, then send the body one byte per interval.
        int dripIntervalMilliseconds = 0;
        QByteArray contentType = "application/json";
        // Sent after Content-Type, in this order (for example a Location).
        QList<QPair<QByteArray, QByteArray>> headers;
    };

    explicit StandInHttpServer(QObject* parent = nullptr);
    ~StandInHttpServer() override;

    // Listens on 127.0.0.1 at a free port; false when that is impossible.
    bool start();
    quint16 port() const { return m_server.serverPort(); }
    // http://127.0.0.1:<port> followed by `path`.
    QString url(const QString& path = QString()) const;

    // The answer to every following request, unless a responder is set.
    void setResponse(Response response) { m_response = std::move(response); }
    void setJsonResponse(int status, const QByteArray& body);
    // Chooses each answer from the request (for servers with several paths).
    void setResponder(std::function<Response(const Request&)> responder) {
        m_responder = std::move(responder);
    }

    const QList<Request>& requests() const { return m_requests; }
    // Connections that have ended, whichever side ended them.
    int closedConnections() const { return m_closedConnections; }
    // Connections accepted so far, including any whose request never arrived whole.
    int acceptedConnections() const { return m_acceptedConnections; }

signals:
    void requestReceived();

private:
    void accept();
    void readFrom(QTcpSocket* socket);
    void answer(QTcpSocket* socket, const Response& response);
    void drip(QTcpSocket* socket, QByteArray body, int intervalMilliseconds);

    QTcpServer m_server;
    Response m_response;
    std::function<Response(const Request&)> m_responder;
    QList<Request> m_requests;
    QHash<QTcpSocket*, QByteArray> m_buffers;
    int m_closedConnections = 0;
    int m_acceptedConnections = 0;
};

} // namespace murmurly::testing
