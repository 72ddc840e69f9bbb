#include "speech/HttpTranscriptionServer.h"

#include "speech/TranscriptionExchange.h"
#include "speech/TranscriptionRequest.h"

#include <QElapsedTimer>
#include <QNetworkRequest>
#include <QUrl>

#include <algorithm>

namespace murmurly {

namespace {

QCoro::Task<std::optional<QString>> fixedKey(QString key) {
    co_return key;
}

} // namespace

HttpTranscriptionServer::HttpTranscriptionServer(QNetworkAccessManager& network, QString endpointURL,
                                                 QString model, QString apiKey)
    : HttpTranscriptionServer(
          network, std::move(endpointURL), std::move(model),
          [apiKey = std::move(apiKey)](std::chrono::milliseconds) { return fixedKey(apiKey); }) {
}

HttpTranscriptionServer::HttpTranscriptionServer(QNetworkAccessManager& network, QString endpointURL,
                                                 QString model, KeyReader readKey)
    : m_network(network)
    , m_endpointURL(std::move(endpointURL))
    , m_model(std::move(model))
    , m_readKey(std::move(readKey)) {
}

QCoro::Task<ServerTranscript> HttpTranscriptionServer::transcribe(QByteArray wav, QString language,
                                                                  std::chrono::milliseconds limit) {
    const QUrl url(m_endpointURL.trimmed(), QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || url.host().isEmpty() ||
        (scheme != QLatin1String("http") && scheme != QLatin1String("https")))
        co_return ServerTranscript::failure(QStringLiteral("The endpoint is not an http or https URL."));

    // The time spent on the key comes out of the request's own limit.
    QElapsedTimer elapsed;
    elapsed.start();
    const QString apiKey = (co_await m_readKey(std::min(limit, keyReadLimit))).value_or(QString());
    const auto remaining = limit - std::chrono::milliseconds(elapsed.elapsed());
    if (remaining <= std::chrono::milliseconds::zero())
        co_return ServerTranscript::failure(QStringLiteral("The keyring did not answer in time."));

    const TranscriptionRequest request =
        TranscriptionRequest::make(std::move(wav), m_model.trimmed(), language);
    QNetworkRequest http(url);
    http.setRawHeader("Content-Type", request.contentType());
    http.setRawHeader("Accept", "application/json");
    if (!apiKey.isEmpty()) http.setRawHeader("Authorization", "Bearer " + apiKey.toUtf8());

    const TranscriptionExchange::Outcome outcome =
        co_await TranscriptionExchange::post(m_network, http, request.body(), remaining);
    if (outcome.error) co_return ServerTranscript::failure(*outcome.error);

    QString error;
    std::optional<QString> text = TranscriptionRequest::parseReply(outcome.body, error);
    if (!text) co_return ServerTranscript::failure(error);
    co_return ServerTranscript::transcript(std::move(*text));
}

} // namespace murmurly
