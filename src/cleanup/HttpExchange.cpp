#include "cleanup/HttpExchange.h"

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

// Shared with the signal handlers, which may outlive the coroutine frame by a queued event.
struct Transfer {
    QByteArray received;
    std::optional<int> status;
    bool tooLarge = false;
    bool timedOut = false; // idle for the whole limit
    bool overran = false;  // the whole exchange took too long
    bool ending = false;   // a status other than 200 arrived; the exchange has ended
};

// How much of an error body the network stack may hold while its reply ends by itself.
constexpr qint64 unreadBodyBuffer = 64 * 1024;

QNetworkRequest prepared(QNetworkRequest request) {
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    return request;
}

QCoro::Task<HttpExchange::Outcome> run(QNetworkReply* r, std::chrono::milliseconds timeout, qint64 maxBytes) {
    const QPointer<QNetworkReply> alive(r);
    auto transfer = std::make_shared<Transfer>();

    // The idle limit restarts on every sign of progress in either direction; the exchange limit
    // does not, so a server that keeps sending a byte now and then cannot hold the request open.
    auto* idle = new QTimer(r);
    idle->setObjectName(QStringLiteral("idleLimit"));
    idle->setSingleShot(true);
    idle->setInterval(timeout);
    QObject::connect(idle, &QTimer::timeout, r, [r, transfer] {
        if (r->isFinished()) return;
        transfer->timedOut = true;
        r->abort();
    });
    auto* whole = new QTimer(r);
    whole->setObjectName(QStringLiteral("exchangeLimit"));
    whole->setSingleShot(true);
    whole->setInterval(HttpExchange::exchangeLimit(timeout));
    QObject::connect(whole, &QTimer::timeout, r, [r, transfer] {
        if (r->isFinished()) return;
        transfer->overran = true;
        r->abort();
    });
    const auto progressed = [idle] { idle->start(); };
    QObject::connect(r, &QNetworkReply::uploadProgress, idle, progressed);
    QObject::connect(r, &QNetworkReply::downloadProgress, idle, progressed);

    // Any status but 200 decides the outcome by itself: the exchange ends as soon as it is known,
    // without reading the body. The reply itself is not aborted: the network thread raises an
    // error of its own for such a status, and one arriving after an abort makes Qt report an
    // internal problem. It ends by itself (or at the exchange limit, which still stands) and is
    // deleted then.
    auto* decided = new QTimer(r);
    decided->setSingleShot(true);
    const auto readStatus = [r, transfer, decided] {
        const QVariant status = r->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (!status.isValid()) return;
        transfer->status = status.toInt();
        if (*transfer->status == 200 || transfer->ending) return;
        transfer->ending = true;
        // What is left of the body stays on the socket rather than piling up in memory.
        r->setReadBufferSize(unreadBodyBuffer);
        decided->start(0);
    };
    QObject::connect(r, &QNetworkReply::metaDataChanged, r, [idle, transfer, readStatus] {
        idle->start();
        readStatus();
    });
    QObject::connect(r, &QNetworkReply::readyRead, r, [r, transfer, readStatus, maxBytes] {
        if (!transfer->status) readStatus();
        if (transfer->tooLarge || transfer->status != 200) return;
        transfer->received += r->read(maxBytes + 1 - transfer->received.size());
        if (transfer->received.size() > maxBytes) {
            transfer->tooLarge = true;
            r->abort();
        }
    });

    idle->start();
    whole->start();
    co_await ReplyEnd(r, decided);
    HttpExchange::Outcome outcome;
    if (!alive) {
        outcome.transferError = QStringLiteral("The request was cancelled.");
        co_return outcome;
    }
    if (r->isFinished()) {
        idle->stop();
        whole->stop();
        r->deleteLater();
    } else {
        // Decided by its status: the idle and exchange limits still end a reply that keeps sending.
        QObject::connect(r, &QNetworkReply::finished, r, &QObject::deleteLater);
    }

    if (!transfer->status) readStatus();
    if (transfer->status == 200 && !transfer->tooLarge && r->error() == QNetworkReply::NoError) {
        transfer->received += r->read(maxBytes + 1 - transfer->received.size());
        if (transfer->received.size() > maxBytes) transfer->tooLarge = true;
    }

    if (transfer->tooLarge && transfer->status == 200) {
        outcome.transferError = QStringLiteral("The reply body is larger than %1 bytes.").arg(maxBytes);
    } else if (transfer->status && *transfer->status != 200) {
        // Whatever happened to the body afterwards, the status decides.
        outcome.status = *transfer->status;
    } else if (transfer->timedOut) {
        outcome.transferError = QStringLiteral("The request timed out.");
    } else if (transfer->overran) {
        outcome.transferError = QStringLiteral("The request did not finish within %1 ms.")
                                    .arg(HttpExchange::exchangeLimit(timeout).count());
    } else if (r->error() != QNetworkReply::NoError) {
        outcome.transferError = r->errorString();
    } else if (transfer->status == 200 &&
               endsShortOfAnnouncedLength(r->header(QNetworkRequest::ContentLengthHeader),
                                          r->rawHeader("Content-Encoding"), transfer->received.size())) {
        outcome.transferError = QStringLiteral("The connection ended before the whole reply arrived.");
    } else {
        outcome.status = transfer->status.value_or(-1);
        if (outcome.status == 200) outcome.body = std::move(transfer->received);
    }
    co_return outcome;
}

} // namespace

QCoro::Task<HttpExchange::Outcome> HttpExchange::post(QNetworkAccessManager& network, QNetworkRequest request,
                                                      QByteArray body, std::chrono::milliseconds timeout,
                                                      qint64 maxBytes) {
    return run(network.post(prepared(std::move(request)), body), timeout, maxBytes);
}

QCoro::Task<HttpExchange::Outcome> HttpExchange::get(QNetworkAccessManager& network, QNetworkRequest request,
                                                     std::chrono::milliseconds timeout, qint64 maxBytes) {
    return run(network.get(prepared(std::move(request))), timeout, maxBytes);
}

} // namespace murmurly
