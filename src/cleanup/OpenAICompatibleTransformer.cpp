#include "cleanup/OpenAICompatibleTransformer.h"

#include "cleanup/ChatCompletions.h"
#include "cleanup/CleanupPrompt.h"
#include "cleanup/HttpExchange.h"
#include "core/Log.h"

#include <QNetworkRequest>

namespace murmurly {

namespace {

void logFailure(const QString& error) {
    qCCritical(lcApp).noquote() << QStringLiteral("OpenAI-compatible cleanup request failed: ") + error;
}

} // namespace

OpenAICompatibleTransformer::OpenAICompatibleTransformer(QNetworkAccessManager& network, QString apiKey,
                                                         QString model, QString baseURL,
                                                         std::chrono::milliseconds timeout)
    : m_network(network)
    , m_apiKey(std::move(apiKey))
    , m_model(std::move(model))
    , m_baseURL(std::move(baseURL))
    , m_timeout(timeout) {
}

QCoro::Task<std::optional<TransformResult>> OpenAICompatibleTransformer::transform(QString text,
                                                                                   QString prompt) {
    // A base URL that is not a URL is the user's typing, not a failure worth a log line.
    const std::optional<QUrl> url = ChatCompletions::endpoint(m_baseURL);
    if (!url) co_return std::nullopt;

    QString error;
    const std::optional<QByteArray> body = ProviderReply::serialise(
        ChatCompletions::requestBody(m_model, prompt, text, "cleaned_transcript", CleanupPrompt::jsonSchema),
        error);
    if (!body) {
        logFailure(error);
        co_return std::nullopt;
    }

    QNetworkRequest request(*url);
    request.setRawHeader("Content-Type", "application/json");
    request.setRawHeader("Authorization", "Bearer " + m_apiKey.toUtf8());

    const HttpExchange::Outcome outcome = co_await HttpExchange::post(m_network, request, *body, m_timeout);
    if (outcome.transferError) {
        logFailure(*outcome.transferError);
        co_return std::nullopt;
    }
    if (outcome.status != 200) {
        qCCritical(lcApp).noquote()
            << QStringLiteral("OpenAI-compatible cleanup error %1").arg(outcome.status);
        co_return std::nullopt;
    }

    ProviderReply reply = ChatCompletions::parseReply(outcome.body);
    if (reply.kind == ProviderReply::Kind::unparsable) logFailure(reply.error);
    co_return std::move(reply.result);
}

} // namespace murmurly
