#pragma once

#include <QByteArray>
#include <QCoro/QCoroTask>
#include <QNetworkRequest>
#include <QString>

#include <chrono>
#include <optional>

class QNetworkAccessManager;

namespace murmurly {

// One HTTP request and its reply, reduced to what the cleanup providers look at. Redirects are
// not followed (a redirect is a status like any other, and the key never goes to another host),
// TLS certificates are verified as Qt does by default, and the body is read only for status 200
// and never beyond `maxReplyBytes`, so a broken or hostile server cannot exhaust memory. Any
// other status ends the exchange as soon as it arrives, and no exchange lasts longer than
// exchangeLimit(timeout), however slowly the server keeps sending.
class HttpExchange {
public:
    static constexpr qint64 maxReplyBytes = 4 * 1024 * 1024;

    struct Outcome {
        // Set when the transfer itself failed (no connection, timeout, reset, oversized body).
        std::optional<QString> transferError;
        // The HTTP status, -1 when no HTTP response arrived.
        int status = -1;
        // The body when the status is 200.
        QByteArray body;
    };

    // `timeout` is an idle limit, as in the platform URL APIs: the request fails when nothing is
    // sent or received for that long. `network` must outlive the request.
    static constexpr std::chrono::milliseconds exchangeLimit(std::chrono::milliseconds timeout) {
        return 2 * timeout;
    }

    static QCoro::Task<Outcome> post(QNetworkAccessManager& network, QNetworkRequest request, QByteArray body,
                                     std::chrono::milliseconds timeout, qint64 maxBytes = maxReplyBytes);
    static QCoro::Task<Outcome> get(QNetworkAccessManager& network, QNetworkRequest request,
                                    std::chrono::milliseconds timeout, qint64 maxBytes = maxReplyBytes);
};

} // namespace murmurly
