#pragma once

#include "speech/TranscriptionServer.h"

#include <QString>

class QNetworkAccessManager;

namespace murmurly {

// A transcription server reached over HTTP at the endpoint the user names (a local whisper.cpp
// server's /inference, or any /v1/audio/transcriptions), with an optional model name and an
// optional API key sent as a bearer token.
class HttpTranscriptionServer final : public TranscriptionServer {
public:
    HttpTranscriptionServer(QNetworkAccessManager& network, QString endpointURL, QString model,
                            QString apiKey);

    QCoro::Task<ServerTranscript> transcribe(QByteArray wav, QString language,
                                             std::chrono::milliseconds limit) override;

private:
    QNetworkAccessManager& m_network;
    QString m_endpointURL;
    QString m_model;
    QString m_apiKey;
};

} // namespace murmurly
