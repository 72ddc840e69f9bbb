#pragma once

#include "cleanup/TextTransformer.h"

#include <chrono>

class QNetworkAccessManager;

namespace murmurly {

// Cleanup over any server that speaks the OpenAI chat-completions protocol, at the base URL the
// user typed (HTTPS, or plain HTTP only when the URL says so), asking for strict JSON-schema output.
class OpenAICompatibleTransformer final : public TextTransformer {
public:
    static constexpr std::chrono::milliseconds defaultTimeout{20000};

    OpenAICompatibleTransformer(QNetworkAccessManager& network, QString apiKey, QString model,
                                QString baseURL, std::chrono::milliseconds timeout = defaultTimeout);

    const QString& apiKey() const { return m_apiKey; }
    const QString& model() const { return m_model; }
    const QString& baseURL() const { return m_baseURL; }

    QCoro::Task<std::optional<TransformResult>> transform(QString text, QString prompt) override;

private:
    QNetworkAccessManager& m_network;
    QString m_apiKey;
    QString m_model;
    QString m_baseURL;
    std::chrono::milliseconds m_timeout;
};

} // namespace murmurly
