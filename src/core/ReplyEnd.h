#pragma once

#include <QCoreApplication>
#include <QMetaObject>
#include <QNetworkReply>
#include <QObject>
#include <QTimer>

#include <coroutine>
#include <memory>
#include <utility>

namespace murmurly {

// What an HTTP exchange awaits: resumes the awaiting coroutine when the reply finishes, when
// `decided` fires (the outcome is known before the reply ends), or, should the network manager be
// destroyed first and take the reply with it, from the event loop right afterwards; a request is
// never left suspended for good. For the libraries that speak HTTP (Qt Network).
class ReplyEnd {
public:
    ReplyEnd(QNetworkReply* reply, QTimer* decided)
        : m_reply(reply)
        , m_decided(decided) {}

    bool await_ready() const noexcept { return !m_reply || m_reply->isFinished(); }

    void await_suspend(std::coroutine_handle<> awaiting) {
        auto resumed = std::make_shared<bool>(false);
        m_finished = QObject::connect(m_reply, &QNetworkReply::finished, [awaiting, resumed] {
            if (!std::exchange(*resumed, true)) awaiting.resume();
        });
        m_decidedConnection = QObject::connect(m_decided, &QTimer::timeout, [awaiting, resumed] {
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
        QObject::disconnect(m_decidedConnection);
        QObject::disconnect(m_destroyed);
    }

private:
    QNetworkReply* m_reply;
    QTimer* m_decided;
    QMetaObject::Connection m_finished;
    QMetaObject::Connection m_decidedConnection;
    QMetaObject::Connection m_destroyed;
};

} // namespace murmurly
