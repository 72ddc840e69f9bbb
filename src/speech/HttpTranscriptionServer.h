#pragma once

#include "speech/TranscriptionServer.h"

#include <QString>

#include <functional>
#include <optional>

class QNetworkAccessManager;

namespace murmurly {

// A transcription server reached over HTTP at the endpoint the user names (a local whisper.cpp
// server's /inference, or any /v1/audio/transcriptions), with an optional model name and an
// optional API key sent as a bearer token.
class HttpTranscriptionServer final : public TranscriptionServer {
public:
    // Reads the API key, giving up after the limit; absent when there is none (or it could not be
    // read in time, in which case the request goes without it and the server says whether it
    // needed one).
    using KeyReader = std::function<QCoro::Task<std::optional<QString>>(std::chrono::milliseconds limit)>;

    // The most of a request's time limit spent waiting for the keyring.
    static constexpr std::chrono::milliseconds keyReadLimit{2000};

    HttpTranscriptionServer(QNetworkAccessManager& network, QString endpointURL, QString model,
                            QString apiKey);
    // The key is read when a transcription is asked for, off the main thread and bounded, so
    // that a keyring waiting for an unlock prompt never holds up the start of a dictation.
    HttpTranscriptionServer(QNetworkAccessManager& network, QString endpointURL, QString model,
                            KeyReader readKey);

    QCoro::Task<ServerTranscript> transcribe(QByteArray wav, QString language,
                                             std::chrono::milliseconds limit) override;

private:
    QNetworkAccessManager& m_network;
    QString m_endpointURL;
    QString m_model;
    KeyReader m_readKey;
};

} // namespace murmurly
