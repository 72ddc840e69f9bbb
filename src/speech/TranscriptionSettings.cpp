#include "speech/TranscriptionSettings.h"

#include "cleanup/KeychainStore.h"
#include "core/Defaults.h"
#include "speech/HttpTranscriptionServer.h"

#include <QHostAddress>
#include <QUrl>

namespace murmurly {

TranscriptionSettings::TranscriptionSettings(Defaults& defaults, KeychainStore& keys,
                                             QNetworkAccessManager& network, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_keys(keys)
    , m_network(network) {
}

SpeechEngineKind TranscriptionSettings::engine() const {
    return SpeechEngineKinds::fromStored(m_defaults.stringValue(speechEngineKey));
}

void TranscriptionSettings::setEngine(SpeechEngineKind engine) {
    m_defaults.setString(speechEngineKey, SpeechEngineKinds::rawValue(engine));
    emit changed();
}

QString TranscriptionSettings::endpointURL() const {
    return m_defaults.stringValue(endpointURLKey).value_or(QString());
}

void TranscriptionSettings::setEndpointURL(const QString& url) {
    m_defaults.setString(endpointURLKey, url);
    emit changed();
}

QString TranscriptionSettings::model() const {
    return m_defaults.stringValue(modelKey).value_or(QString());
}

void TranscriptionSettings::setModel(const QString& model) {
    m_defaults.setString(modelKey, model);
    emit changed();
}

QCoro::Task<bool> TranscriptionSettings::hasApiKeyWithin(std::chrono::milliseconds limit) const {
    const std::optional<QString> key = co_await m_keys.valueWithin(apiKeyAccount, limit);
    co_return key && !key->isEmpty();
}

bool TranscriptionSettings::setApiKey(const QString& key) {
    const bool saved = m_keys.set(key, apiKeyAccount);
    emit changed();
    return saved;
}

void TranscriptionSettings::removeApiKey() {
    m_keys.remove(apiKeyAccount);
    emit changed();
}

bool TranscriptionSettings::isOnThisComputer(const QString& url) {
    const QString host = QUrl(url.trimmed()).host();
    if (host.isEmpty()) return true; // nothing is sent anywhere yet
    if (host.compare(QLatin1String("localhost"), Qt::CaseInsensitive) == 0) return true;
    const QHostAddress address(host);
    return !address.isNull() && address.isLoopback();
}

std::shared_ptr<TranscriptionServer> TranscriptionSettings::makeServer() const {
    if (engine() != SpeechEngineKind::server) return nullptr;
    return makeConfiguredServer();
}

std::shared_ptr<TranscriptionServer> TranscriptionSettings::makeConfiguredServer() const {
    const KeychainStore& keys = m_keys;
    return std::make_shared<HttpTranscriptionServer>(
        m_network, endpointURL(), model(),
        [&keys](std::chrono::milliseconds limit) { return keys.valueWithin(apiKeyAccount, limit); });
}

} // namespace murmurly
