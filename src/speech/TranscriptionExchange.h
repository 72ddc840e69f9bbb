#pragma once

#include <QByteArray>
#include <QCoro/QCoroTask>
#include <QNetworkRequest>
#include <QString>

#include <chrono>
#include <optional>

class QNetworkAccessManager;

namespace murmurly {

// One POST to a transcription server and its reply. Redirects are not followed (the key and the
// audio never go anywhere the user did not name), TLS certificates are verified as Qt does by
// default, the whole exchange is bounded in time (a server that drips its reply byte by byte
// cannot stretch it), a reply that is not status 200 is not read any further, and a 200 body is
// never read beyond `maxBytes`.
class TranscriptionExchange {
public:
    static constexpr qint64 maxReplyBytes = 1024 * 1024;

    struct Outcome {
        // Set when there is no usable body: no connection, time up, reset, oversized body, or a
        // status other than 200 (then `status` holds it).
        std::optional<QString> error;
        // The HTTP status, -1 when no HTTP response arrived.
        int status = -1;
        // The body when the status is 200 and no error occurred.
        QByteArray body;
    };

    // `network` must outlive the request.
    static QCoro::Task<Outcome> post(QNetworkAccessManager& network, QNetworkRequest request, QByteArray body,
                                     std::chrono::milliseconds totalLimit, qint64 maxBytes = maxReplyBytes);
};

} // namespace murmurly
