#pragma once

#include "cleanup/TextTransformer.h"

#include <QUrl>

#include <chrono>

class QNetworkAccessManager;

namespace murmurly {

// Cleanup over the Anthropic Messages API: one POST per transcript asking for structured JSON
// output that follows the cleanup schema.
class AnthropicTransformer final : public TextTransformer {
public:
    static constexpr std::chrono::milliseconds defaultTimeout{15000};

    // https://api.anthropic.com/v1/messages
    static const QUrl& endpoint();

    // `url` and `timeout` differ from the defaults only in tests, which talk to a stand-in server.
    AnthropicTransformer(QNetworkAccessManager& network, QString apiKey, QString model, QUrl url = endpoint(),
                         std::chrono::milliseconds timeout = defaultTimeout);

    const QString& apiKey() const { return m_apiKey; }
    const QString& model() const { return m_model; }

    QCoro::Task<std::optional<TransformResult>> transform(QString text, QString prompt) override;

private:
    QNetworkAccessManager& m_network;
    QString m_apiKey;
    QString m_model;
    QUrl m_url;
    std::chrono::milliseconds m_timeout;
};

} // namespace murmurly
