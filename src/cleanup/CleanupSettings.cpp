#include "cleanup/CleanupSettings.h"

#include "cleanup/AnthropicTransformer.h"
#include "cleanup/KeychainStore.h"
#include "cleanup/LocalLanguageModel.h"
#include "cleanup/OnDeviceTransformer.h"
#include "cleanup/OpenAICompatibleTransformer.h"
#include "core/Defaults.h"

#include <QPointer>
#include <QtGlobal>

#include <limits>

namespace murmurly {

CleanupSettings::CleanupSettings(Defaults& defaults, KeychainStore& keys, LocalLanguageModel& localModel,
                                 QNetworkAccessManager& network, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_keys(keys)
    , m_localModel(localModel)
    , m_network(network)
    , m_provider(CleanupProviders::fromRawValue(defaults.stringValue(providerKey).value_or(QString()))
                     .value_or(CleanupProvider::onDevice))
    , m_openAIBaseURL(defaults.stringValue(openAIBaseURLKey).value_or(defaultOpenAIBaseURL)) {
}

void CleanupSettings::setProvider(CleanupProvider provider) {
    const bool changed = provider != m_provider;
    m_provider = provider;
    persist();
    if (changed) emit providerChanged();
}

void CleanupSettings::setOpenAIBaseURL(const QString& baseURL) {
    const bool changed = baseURL != m_openAIBaseURL;
    m_openAIBaseURL = baseURL;
    persist();
    if (changed) emit openAIBaseURLChanged();
}

void CleanupSettings::bumpKeyRevision() {
    if (m_keyRevision == std::numeric_limits<qint64>::max()) qFatal("key revision overflow");
    ++m_keyRevision;
    emit keyRevisionChanged();
}

void CleanupSettings::persist() {
    m_defaults.setString(providerKey, CleanupProviders::rawValue(m_provider));
    m_defaults.setString(openAIBaseURLKey, m_openAIBaseURL);
}

std::unique_ptr<TextTransformer> CleanupSettings::makeTransformer() const {
    if (m_provider == CleanupProvider::onDevice) {
        if (m_localModel.availability() != LocalLanguageModel::Availability::available) return nullptr;
        return std::make_unique<OnDeviceTransformer>(m_localModel);
    }
    const std::optional<QString> key = m_keys.value(*CleanupProviders::keychainAccount(m_provider));
    if (!key) return nullptr;
    return keyedTransformer(m_provider, *key);
}

QCoro::Task<std::unique_ptr<TextTransformer>>
CleanupSettings::makeTransformerNow(std::chrono::milliseconds keyLimit) {
    QPointer<CleanupSettings> self(this);
    const CleanupProvider provider = m_provider;
    if (provider == CleanupProvider::onDevice) {
        LocalLanguageModel& localModel = m_localModel;
        const LocalLanguageModel::Availability availability = co_await localModel.checkAvailability();
        if (!self || availability != LocalLanguageModel::Availability::available)
            co_return std::unique_ptr<TextTransformer>();
        co_return std::unique_ptr<TextTransformer>(std::make_unique<OnDeviceTransformer>(localModel));
    }
    const std::optional<QString> key =
        co_await m_keys.valueWithin(*CleanupProviders::keychainAccount(provider), keyLimit);
    if (!self || !key) co_return std::unique_ptr<TextTransformer>();
    co_return keyedTransformer(provider, *key);
}

std::unique_ptr<TextTransformer> CleanupSettings::keyedTransformer(CleanupProvider provider,
                                                                   const QString& key) const {
    if (provider == CleanupProvider::anthropic)
        return std::make_unique<AnthropicTransformer>(m_network, key,
                                                      CleanupProviders::defaultModel(provider));
    if (provider == CleanupProvider::openAICompatible) {
        const QString baseURL = m_openAIBaseURL.isEmpty() ? defaultOpenAIBaseURL : m_openAIBaseURL;
        return std::make_unique<OpenAICompatibleTransformer>(
            m_network, key, CleanupProviders::defaultModel(provider), baseURL);
    }
    return nullptr;
}

} // namespace murmurly
