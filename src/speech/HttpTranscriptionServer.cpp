#include "speech/HttpTranscriptionServer.h"

#include "speech/TranscriptionExchange.h"
#include "speech/TranscriptionRequest.h"

#include <QNetworkRequest>
#include <QUrl>

namespace murmurly {

HttpTranscriptionServer::HttpTranscriptionServer(QNetworkAccessManager& network, QString endpointURL,
                                                 QString model, QString apiKey)
    : m_network(network)
    , m_endpointURL(std::move(endpointURL))
    , m_model(std::move(model))
    , m_apiKey(std::move(apiKey)) {
}

QCoro::Task<ServerTranscript> HttpTranscriptionServer::transcribe(QByteArray wav, QString language,
                                                                  std::chrono::milliseconds limit) {
    const QUrl url(m_endpointURL.trimmed(), QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || url.host().isEmpty() ||
        (scheme != QLatin1String("http") && scheme != QLatin1String("https")))
        co_return ServerTranscript::failure(QStringLiteral("The endpoint is not an http or https URL."));

    const TranscriptionRequest request =
        TranscriptionRequest::make(std::move(wav), m_model.trimmed(), language);
    QNetworkRequest http(url);
    http.setRawHeader("Content-Type", request.contentType());
    http.setRawHeader("Accept", "application/json");
    if (!m_apiKey.isEmpty()) http.setRawHeader("Authorization", "Bearer " + m_apiKey.toUtf8());

    const TranscriptionExchange::Outcome outcome =
        co_await TranscriptionExchange::post(m_network, http, request.body(), limit);
    if (outcome.error) co_return ServerTranscript::failure(*outcome.error);

    QString error;
    std::optional<QString> text = TranscriptionRequest::parseReply(outcome.body, error);
    if (!text) co_return ServerTranscript::failure(error);
    co_return ServerTranscript::transcript(std::move(*text));
}

} // namespace murmurly
