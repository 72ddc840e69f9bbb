#include "cleanup/HttpExchange.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QTimer>

#include <coroutine>
#include <memory>
#include <utility>

namespace murmurly {

namespace {

// Resumes the awaiting coroutine when the reply finishes, or, should the network manager be
// destroyed first and take the reply with it, from the event loop right afterwards; a request is
// never left suspended for good.
class ReplyEnd {
public:
    explicit ReplyEnd(QNetworkReply* reply)
        : m_reply(reply) {}

    bool await_ready() const noexcept { return !m_reply || m_reply->isFinished(); }

    void await_suspend(std::coroutine_handle<> awaiting) {
        auto resumed = std::make_shared<bool>(false);
        m_finished = QObject::connect(m_reply, &QNetworkReply::finished, [awaiting, resumed] {
            if (std::exchange(*resumed, true)) return;
            awaiting.resume();
        });
        m_destroyed = QObject::connect(m_reply, &QObject::destroyed, [awaiting, resumed] {
            if (std::exchange(*resumed, true)) return;
            QMetaObject::invokeMethod(
                QCoreApplication::instance(), [awaiting] { awaiting.resume(); }, Qt::QueuedConnection);
        });
    }

    void await_resume() {
        QObject::disconnect(m_finished);
        QObject::disconnect(m_destroyed);
    }

private:
    QNetworkReply* m_reply;
    QMetaObject::Connection m_finished;
    QMetaObject::Connection m_destroyed;
};

// Shared with the signal handlers, which may outlive the coroutine frame by a queued event.
struct Transfer {
    QByteArray received;
    qint64 discarded = 0;
    std::optional<int> status;
    bool tooLarge = false;
    bool timedOut = false;
};

QNetworkRequest prepared(QNetworkRequest request) {
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    return request;
}

QCoro::Task<HttpExchange::Outcome> run(QNetworkReply* r, std::chrono::milliseconds timeout, qint64 maxBytes) {
    const QPointer<QNetworkReply> alive(r);
    auto transfer = std::make_shared<Transfer>();

    // The idle limit restarts on every sign of progress in either direction.
    auto* idle = new QTimer(r);
    idle->setSingleShot(true);
    idle->setInterval(timeout);
    QObject::connect(idle, &QTimer::timeout, r, [r, transfer] {
        if (r->isFinished()) return;
        transfer->timedOut = true;
        r->abort();
    });
    const auto progressed = [idle] { idle->start(); };
    QObject::connect(r, &QNetworkReply::uploadProgress, idle, progressed);
    QObject::connect(r, &QNetworkReply::downloadProgress, idle, progressed);

    const auto readStatus = [r, transfer] {
        const QVariant status = r->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (status.isValid()) transfer->status = status.toInt();
    };
    QObject::connect(r, &QNetworkReply::metaDataChanged, r, [idle, transfer, readStatus] {
        idle->start();
        readStatus();
    });
    QObject::connect(r, &QNetworkReply::readyRead, r, [r, transfer, readStatus, maxBytes] {
        if (!transfer->status) readStatus();
        if (transfer->tooLarge) return;
        if (transfer->status == 200) {
            transfer->received += r->read(maxBytes + 1 - transfer->received.size());
        } else {
            // The body of any other status is never looked at, only drained so it is not buffered.
            transfer->discarded += r->skip(r->bytesAvailable());
        }
        if (transfer->received.size() > maxBytes || transfer->discarded > maxBytes) {
            transfer->tooLarge = true;
            r->abort();
        }
    });

    idle->start();
    co_await ReplyEnd(r);
    HttpExchange::Outcome outcome;
    if (!alive) {
        outcome.transferError = QStringLiteral("The request was cancelled.");
        co_return outcome;
    }
    idle->stop();
    r->deleteLater();

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
    } else if (r->error() != QNetworkReply::NoError) {
        outcome.transferError = r->errorString();
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
