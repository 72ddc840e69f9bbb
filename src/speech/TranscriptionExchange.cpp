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

    auto* deadline = new QTimer(r);
    deadline->setSingleShot(true);
    QObject::connect(deadline, &QTimer::timeout, r, [r, progress] {
        if (r->isFinished()) return;
        progress->timedOut = true;
        r->abort();
    });

    QObject::connect(r, &QNetworkReply::metaDataChanged, r, [r, progress, maxBytes] {
        const QVariant status = r->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (!status.isValid()) return;
        progress->status = status.toInt();
        // Nothing but a 200 body is ever looked at, so the rest is not even received.
        if (*progress->status != 200) {
            abortSoon(r);
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
    co_await Finished(r);
    Outcome outcome;
    if (!alive) {
        outcome.error = QStringLiteral("The request was cancelled.");
        co_return outcome;
    }
    deadline->stop();
    r->deleteLater();

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
    } else {
        outcome.body = std::move(progress->received);
    }
    co_return outcome;
}

} // namespace murmurly
