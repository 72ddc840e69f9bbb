#include "speech/TranscriptionExchange.h"

#include "core/AnnouncedLength.h"
#include "core/ReplyEnd.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QTimer>

#include <memory>
#include <utility>

namespace murmurly {

namespace {

// Aborts from the event loop rather than inside one of the reply's own signals, where Qt would
// report the abort's error a second time.
void abortSoon(QNetworkReply* reply) {
    QMetaObject::invokeMethod(
        reply,
        [reply] {
            if (!reply->isFinished()) reply->abort();
        },
        Qt::QueuedConnection);
}

// How much of an error body the network stack may hold while its reply ends by itself.
constexpr qint64 unreadBodyBuffer = 64 * 1024;

// Written by the reply's signal handlers.
struct Progress {
    QByteArray received;
    std::optional<int> status;
    bool tooLarge = false;
    bool timedOut = false;
};

} // namespace

QCoro::Task<TranscriptionExchange::Outcome>
TranscriptionExchange::post(QNetworkAccessManager& network, QNetworkRequest request, QByteArray body,
                            std::chrono::milliseconds totalLimit, qint64 maxBytes) {
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    QNetworkReply* r = network.post(request, body);
    const QPointer<QNetworkReply> alive(r);
    auto progress = std::make_shared<Progress>();

    // Fired when a status other than 200 has decided the outcome: the exchange ends at once.
    auto* decided = new QTimer(r);
    decided->setSingleShot(true);
    auto* deadline = new QTimer(r);
    deadline->setSingleShot(true);
    QObject::connect(deadline, &QTimer::timeout, r, [r, progress] {
        if (r->isFinished()) return;
        progress->timedOut = true;
        r->abort();
    });

    QObject::connect(r, &QNetworkReply::metaDataChanged, r, [r, progress, decided, maxBytes] {
        const QVariant status = r->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (!status.isValid()) return;
        progress->status = status.toInt();
        // Nothing but a 200 body is ever looked at. Any other status ends the exchange at once;
        // the reply itself is not aborted, as the network thread raises an error of its own for
        // such a status, and one arriving after an abort makes Qt report an internal problem.
        // It ends by itself (or at the deadline, which still stands) and is deleted then.
        if (*progress->status != 200) {
            // What is left of the body stays on the socket rather than piling up in memory.
            r->setReadBufferSize(unreadBodyBuffer);
            decided->start(0);
            return;
        }
        const QVariant length = r->header(QNetworkRequest::ContentLengthHeader);
        if (length.isValid() && length.toLongLong() > maxBytes) {
            progress->tooLarge = true;
            abortSoon(r);
        }
    });
    QObject::connect(r, &QNetworkReply::readyRead, r, [r, progress, maxBytes] {
        if (progress->status != 200 || progress->tooLarge) return;
        progress->received += r->read(maxBytes + 1 - progress->received.size());
        if (progress->received.size() > maxBytes) {
            progress->tooLarge = true;
            abortSoon(r);
        }
    });

    deadline->start(totalLimit);
    co_await ReplyEnd(r, decided);
    Outcome outcome;
    if (!alive) {
        outcome.error = QStringLiteral("The request was cancelled.");
        co_return outcome;
    }
    if (r->isFinished()) {
        deadline->stop();
        r->deleteLater();
    } else {
        QObject::connect(r, &QNetworkReply::finished, r, &QObject::deleteLater);
    }

    if (!progress->status) {
        const QVariant status = r->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (status.isValid()) progress->status = status.toInt();
    }
    if (progress->status == 200 && !progress->tooLarge && r->error() == QNetworkReply::NoError) {
        progress->received += r->read(maxBytes + 1 - progress->received.size());
        if (progress->received.size() > maxBytes) progress->tooLarge = true;
    }
    outcome.status = progress->status.value_or(-1);

    if (progress->status && *progress->status != 200) {
        outcome.error =
            *progress->status >= 300 && *progress->status < 400
                ? QStringLiteral("The server answered with a redirect (status %1), which is not followed.")
                      .arg(*progress->status)
                : QStringLiteral("The server answered with status %1.").arg(*progress->status);
    } else if (progress->tooLarge) {
        outcome.error = QStringLiteral("The reply body is larger than %1 bytes.").arg(maxBytes);
    } else if (progress->timedOut) {
        outcome.error = QStringLiteral("No complete answer within %1 ms.").arg(totalLimit.count());
    } else if (r->error() != QNetworkReply::NoError) {
        outcome.error = r->errorString();
    } else if (!progress->status) {
        outcome.error = QStringLiteral("No HTTP response arrived.");
    } else if (endsShortOfAnnouncedLength(r->header(QNetworkRequest::ContentLengthHeader),
                                          r->rawHeader("Content-Encoding"), progress->received.size())) {
        outcome.error = QStringLiteral("The connection ended before the whole reply arrived.");
    } else {
        outcome.body = std::move(progress->received);
    }
    co_return outcome;
}

} // namespace murmurly
