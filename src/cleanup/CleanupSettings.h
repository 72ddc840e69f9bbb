#pragma once

#include "cleanup/CleanupProvider.h"
#include "cleanup/TextTransformer.h"

#include <QCoro/QCoroTask>
#include <QObject>
#include <QString>

#include <chrono>
#include <memory>

class QNetworkAccessManager;

namespace murmurly {

class Defaults;
class KeychainStore;
class LocalLanguageModel;

// The user's choice of cleanup provider, the OpenAI-compatible base URL, and the factory that
// turns them and the stored keys into a transformer. Whether cleanup runs at all is the dictation
// controller's switch; a provider counts as configured exactly when makeTransformer() can build
// it. Used on the main thread only.
class CleanupSettings : public QObject {
    Q_OBJECT
    Q_PROPERTY(murmurly::CleanupProvider provider READ provider WRITE setProvider NOTIFY providerChanged)
    Q_PROPERTY(QString openAIBaseURL READ openAIBaseURL WRITE setOpenAIBaseURL NOTIFY openAIBaseURLChanged)
    Q_PROPERTY(qint64 keyRevision READ keyRevision NOTIFY keyRevisionChanged)

public:
    static inline const QString providerKey = QStringLiteral("cleanupProvider");
    static inline const QString openAIBaseURLKey = QStringLiteral("cleanupOpenAIBaseURL");
    static inline const QString defaultOpenAIBaseURL = QStringLiteral("https://api.openai.com/v1");

    // Reads both preferences; an unknown or missing provider is the on-device one, and a missing
    // base URL is the OpenAI default (a stored empty one stays empty).
    CleanupSettings(Defaults& defaults, KeychainStore& keys, LocalLanguageModel& localModel,
                    QNetworkAccessManager& network, QObject* parent = nullptr);

    CleanupProvider provider() const { return m_provider; }
    // Every assignment, even of the same value, writes both preferences.
    void setProvider(CleanupProvider provider);
    QString openAIBaseURL() const { return m_openAIBaseURL; }
    void setOpenAIBaseURL(const QString& baseURL);

    // Starts at 0 on every launch and is never stored. The Cleanup tab bumps it after saving or
    // removing a key so that views showing "a key is stored" ask the key store again.
    qint64 keyRevision() const { return m_keyRevision; }
    void bumpKeyRevision();

    // A transformer for the chosen provider, or none when it is not usable now: the local model
    // is unavailable, or no key is stored. The key store is read afresh on every call, so a key
    // saved or removed takes effect at the next dictation.
    std::unique_ptr<TextTransformer> makeTransformer() const;

    // The same factory as a dictation uses it, without blocking the main thread: the local
    // model's availability is asked afresh (not the last answer), and the key is read on another
    // thread and waited for at most `keyLimit`; a key that does not come in time counts as none.
    QCoro::Task<std::unique_ptr<TextTransformer>> makeTransformerNow(std::chrono::milliseconds keyLimit);

signals:
    void providerChanged();
    void openAIBaseURLChanged();
    void keyRevisionChanged();

private:
    void persist();
    std::unique_ptr<TextTransformer> keyedTransformer(CleanupProvider provider, const QString& key) const;

    Defaults& m_defaults;
    KeychainStore& m_keys;
    LocalLanguageModel& m_localModel;
    QNetworkAccessManager& m_network;
    CleanupProvider m_provider = CleanupProvider::onDevice;
    QString m_openAIBaseURL;
    qint64 m_keyRevision = 0;
};

} // namespace murmurly
