#pragma once

#include "speech/SpeechEngineKind.h"
#include "speech/TranscriptionServer.h"

#include <QObject>
#include <QString>

#include <memory>
#include <optional>

class QNetworkAccessManager;

namespace murmurly {

class Defaults;
class KeychainStore;

// The user's choice of speech engine and the transcription server's endpoint, model and API key
// (in the keyring beside the cleanup keys). Every setter writes through at once. Main thread only.
class TranscriptionSettings : public QObject {
    Q_OBJECT

public:
    static inline const QString speechEngineKey = QStringLiteral("speechEngine");
    static inline const QString endpointURLKey = QStringLiteral("transcriptionEndpointURL");
    static inline const QString modelKey = QStringLiteral("transcriptionModel");
    static inline const QString apiKeyAccount = QStringLiteral("transcription-api-key");

    TranscriptionSettings(Defaults& defaults, KeychainStore& keys, QNetworkAccessManager& network,
                          QObject* parent = nullptr);

    SpeechEngineKind engine() const;
    void setEngine(SpeechEngineKind engine);
    QString endpointURL() const;
    void setEndpointURL(const QString& url);
    QString model() const;
    void setModel(const QString& model);

    // Whether a non-empty API key is stored; false also when the keyring has not answered within
    // `limit`.
    QCoro::Task<bool> hasApiKeyWithin(std::chrono::milliseconds limit) const;
    bool setApiKey(const QString& key);
    void removeApiKey();

    // Whether audio sent to `url` stays on this computer (a loopback address or "localhost").
    static bool isOnThisComputer(const QString& url);

    // The server to ask beside the on-device recognizer, or none when the on-device engine is
    // chosen. The key is read afresh on every call.
    std::shared_ptr<TranscriptionServer> makeServer() const;
    // The configured server whatever engine is chosen, for a test from the settings.
    std::shared_ptr<TranscriptionServer> makeConfiguredServer() const;

signals:
    void changed();

private:
    Defaults& m_defaults;
    KeychainStore& m_keys;
    QNetworkAccessManager& m_network;
};

} // namespace murmurly
