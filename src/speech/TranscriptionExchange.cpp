#include "speech/TranscriptionExchange.h"

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
// destroyed first and take the reply with it, from the event loop right afterwards.
class Finished {
public:
    explicit Finished(QNetworkReply* reply)
        : m_reply(reply) {}

    bool await_ready() const noexcept { return m_reply->isFinished(); }

    void await_suspend(std::coroutine_handle<> awaiting) {
        auto resumed = std::make_shared<bool>(false);
        m_finished = QObject::connect(m_reply, &QNetworkReply::finished, [awaiting, resumed] {
            if (!std::exchange(*resumed, true)) awaiting.resume();
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

// Written by the reply's signal handlers.
struct Progress {
    QByteArray received;
    std::optional<int> status;
    bool tooLarge = false;
    bool timedOut = false;
    bool ending = false; // the outcome is decided; the reply is being dropped
};

// Ends an exchange whose outcome is already decided by dropping the reply, from the event loop.
// Deleting an unfinished reply stops its request quietly; abort() would instead raise an error of
// its own, and the network thread may have one for the same reply on the way (it does for any
// status it counts as an error), which Qt then reports as an internal problem. The awaiting
// coroutine resumes on the reply's destruction.
void drop(QNetworkReply* reply, Progress& progress) {
    if (std::exchange(progress.ending, true)) return;
    QMetaObject::invokeMethod(
        reply,
        [reply] {
            if (!reply->isFinished()) reply->deleteLater();
        },
        Qt::QueuedConnection);
}

} // namespace

QCoro::Task<TranscriptionExchange::Outcome>
TranscriptionExchange::post(QNetworkAccessManager& network, QNetworkRequest request, QByteArray body,
                            std::chrono::milliseconds totalLimit, qint64 maxBytes) {
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    QNetworkReply* r = network.post(request, body);
    const QPointer<QNetworkReply> alive(r);
    auto progress = std::make_shared<Progress>();

    auto* deadline = new QTimer(r);
    deadline->setSingleShot(true);
    QObject::connect(deadline, &QTimer::timeout, r, [r, progress] {
        if (r->isFinished() || progress->ending) return;
        progress->timedOut = true;
        drop(r, *progress);
    });

    QObject::connect(r, &QNetworkReply::metaDataChanged, r, [r, progress, maxBytes] {
        const QVariant status = r->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (!status.isValid()) return;
        progress->status = status.toInt();
        // Nothing but a 200 body is ever looked at, so the rest is not even received.
        if (*progress->status != 200) {
            drop(r, *progress);
            return;
        }
        const QVariant length = r->header(QNetworkRequest::ContentLengthHeader);
        if (length.isValid() && length.toLongLong() > maxBytes) {
            progress->tooLarge = true;
            drop(r, *progress);
        }
    });
    QObject::connect(r, &QNetworkReply::readyRead, r, [r, progress, maxBytes] {
        if (progress->status != 200 || progress->tooLarge || progress->ending) return;
        progress->received += r->read(maxBytes + 1 - progress->received.size());
        if (progress->received.size() > maxBytes) {
            progress->tooLarge = true;
            drop(r, *progress);
        }
    });

    deadline->start(totalLimit);
    co_await Finished(r);
    Outcome outcome;
    if (!alive && !progress->ending) {
        // Gone with the network manager, before any outcome was decided.
        outcome.error = QStringLiteral("The request was cancelled.");
        co_return outcome;
    }
    if (alive) {
        deadline->stop();
        r->deleteLater();
        if (!progress->status) {
            const QVariant status = r->attribute(QNetworkRequest::HttpStatusCodeAttribute);
            if (status.isValid()) progress->status = status.toInt();
        }
    }
    const QNetworkReply::NetworkError error = alive ? r->error() : QNetworkReply::OperationCanceledError;
    if (alive && progress->status == 200 && !progress->tooLarge && error == QNetworkReply::NoError) {
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
    } else if (error != QNetworkReply::NoError) {
        outcome.error = alive ? r->errorString() : QStringLiteral("The request was cancelled.");
    } else if (!progress->status) {
        outcome.error = QStringLiteral("No HTTP response arrived.");
    } else {
        outcome.body = std::move(progress->received);
    }
    co_return outcome;
}

} // namespace murmurly
