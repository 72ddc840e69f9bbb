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
    std::optional<int> status;
    bool tooLarge = false;
    bool timedOut = false; // idle for the whole limit
    bool overran = false;  // the whole exchange took too long
    bool ending = false;   // the outcome is decided; the reply is being dropped
};

// Ends an exchange whose outcome is already decided by dropping the reply, from the event loop.
// Deleting an unfinished reply stops its request quietly; abort() would instead raise an error of
// its own, and the network thread may have one for the same reply on the way (it does for any
// status it counts as an error), which Qt then reports as an internal problem. The awaiting
// coroutine resumes on the reply's destruction.
void drop(QNetworkReply* r, Transfer& transfer) {
    if (std::exchange(transfer.ending, true)) return;
    QMetaObject::invokeMethod(
        r,
        [r] {
            if (!r->isFinished()) r->deleteLater();
        },
        Qt::QueuedConnection);
}

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
        if (r->isFinished() || transfer->ending) return;
        transfer->timedOut = true;
        drop(r, *transfer);
    });
    auto* whole = new QTimer(r);
    whole->setObjectName(QStringLiteral("exchangeLimit"));
    whole->setSingleShot(true);
    whole->setInterval(HttpExchange::exchangeLimit(timeout));
    QObject::connect(whole, &QTimer::timeout, r, [r, transfer] {
        if (r->isFinished() || transfer->ending) return;
        transfer->overran = true;
        drop(r, *transfer);
    });
    const auto progressed = [idle] { idle->start(); };
    QObject::connect(r, &QNetworkReply::uploadProgress, idle, progressed);
    QObject::connect(r, &QNetworkReply::downloadProgress, idle, progressed);

    // Any status but 200 decides the outcome by itself: the exchange ends as soon as it is known,
    // without reading the body.
    const auto readStatus = [r, transfer] {
        const QVariant status = r->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (!status.isValid()) return;
        transfer->status = status.toInt();
        if (*transfer->status != 200) drop(r, *transfer);
    };
    QObject::connect(r, &QNetworkReply::metaDataChanged, r, [idle, transfer, readStatus] {
        idle->start();
        readStatus();
    });
    QObject::connect(r, &QNetworkReply::readyRead, r, [r, transfer, readStatus, maxBytes] {
        if (!transfer->status) readStatus();
        if (transfer->tooLarge || transfer->status != 200 || transfer->ending) return;
        transfer->received += r->read(maxBytes + 1 - transfer->received.size());
        if (transfer->received.size() > maxBytes) {
            transfer->tooLarge = true;
            drop(r, *transfer);
        }
    });

    idle->start();
    whole->start();
    co_await ReplyEnd(r);
    HttpExchange::Outcome outcome;
    if (alive) {
        idle->stop();
        whole->stop();
        r->deleteLater();
        if (!transfer->status) readStatus();
    } else if (!transfer->ending) {
        // Gone with the network manager, before any outcome was decided.
        outcome.transferError = QStringLiteral("The request was cancelled.");
        co_return outcome;
    }
    const QNetworkReply::NetworkError error = alive ? r->error() : QNetworkReply::OperationCanceledError;
    if (alive && transfer->status == 200 && !transfer->tooLarge && error == QNetworkReply::NoError) {
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
    } else if (error != QNetworkReply::NoError) {
        outcome.transferError = alive ? r->errorString() : QStringLiteral("The request was cancelled.");
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
