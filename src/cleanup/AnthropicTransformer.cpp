#include "cleanup/AnthropicTransformer.h"

#include "cleanup/AnthropicMessages.h"
#include "cleanup/HttpExchange.h"
#include "core/Log.h"

#include <QNetworkRequest>

namespace murmurly {

namespace {

void logFailure(const QString& error) {
    qCCritical(lcApp).noquote() << QStringLiteral("Anthropic cleanup request failed: ") + error;
}

} // namespace

const QUrl& AnthropicTransformer::endpoint() {
    static const QUrl url = [] {
        QUrl u(QStringLiteral("https://api.anthropic.com/v1/messages"), QUrl::StrictMode);
        if (!u.isValid()) qFatal("the Anthropic endpoint does not parse");
        return u;
    }();
    return url;
}

AnthropicTransformer::AnthropicTransformer(QNetworkAccessManager& network, QString apiKey, QString model,
                                           QUrl url, std::chrono::milliseconds timeout)
    : m_network(network)
    , m_apiKey(std::move(apiKey))
    , m_model(std::move(model))
    , m_url(std::move(url))
    , m_timeout(timeout) {
}

QCoro::Task<std::optional<TransformResult>> AnthropicTransformer::transform(QString text, QString prompt) {
    QString error;
    const std::optional<QByteArray> body =
        ProviderReply::serialise(AnthropicMessages::requestBody(m_model, prompt, text), error);
    if (!body) {
        logFailure(error);
        co_return std::nullopt;
    }

    QNetworkRequest request(m_url);
    request.setRawHeader("Content-Type", "application/json");
    request.setRawHeader("x-api-key", m_apiKey.toUtf8());
    request.setRawHeader("anthropic-version", "2023-06-01");

    const HttpExchange::Outcome outcome = co_await HttpExchange::post(m_network, request, *body, m_timeout);
    if (outcome.transferError) {
        logFailure(*outcome.transferError);
        co_return std::nullopt;
    }
    if (outcome.status != 200) {
        qCCritical(lcApp).noquote() << QStringLiteral("Anthropic cleanup error %1").arg(outcome.status);
        co_return std::nullopt;
    }

    ProviderReply reply = AnthropicMessages::parseReply(outcome.body);
    switch (reply.kind) {
    case ProviderReply::Kind::cleaned:
        co_return std::move(reply.result);
    case ProviderReply::Kind::unparsable:
        logFailure(reply.error);
        break;
    case ProviderReply::Kind::refused:
        qCInfo(lcApp).noquote() << QStringLiteral("Anthropic cleanup refused; falling back to raw");
        break;
    case ProviderReply::Kind::unusable:
        break;
    }
    co_return std::nullopt;
}

} // namespace murmurly
