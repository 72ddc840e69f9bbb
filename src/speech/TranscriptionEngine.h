#pragma once

#include "core/Clock.h"
#include "speech/AnalyzerInputStream.h"
#include "speech/AudioFormat.h"
#include "speech/RecognizerSession.h"
#include "speech/ResultStream.h"
#include "speech/SpeechBackend.h"
#include "speech/TranscriptionServer.h"

#include <QCoro/QCoroTask>
#include <QString>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace murmurly {

// Turns one dictation's audio into text. The controller makes one engine per dictation, starts
// it, feeds the returned input stream from the capture thread, and ends with finish() for the
// text or cancel() to throw the dictation away. The engine lives on the main thread; audio
// reaches the recognizer without passing through it.
//
// With a transcription server, the on-device recognizer still hears the whole dictation; at the
// end the same audio goes to the server, whose text wins when it answers within finalizeLimit of
// finish(). On any failure the on-device text is returned and serverFailure() says why, so nothing
// said is lost. A recording without speech is never sent.
class TranscriptionEngine {
public:
    // How long the recognizer may take to settle the last words after the audio ends.
    static constexpr std::chrono::milliseconds finalizeLimit{8000};
    // How long the results reader may take after that to hand over what it has.
    static constexpr std::chrono::milliseconds resultsWaitLimit{3000};

    // The server's audio format: 16 kHz mono 16-bit.
    static constexpr int serverSampleRate = 16000;

    TranscriptionEngine(SpeechBackend& backend, Clock& clock, const QString& language,
                        std::shared_ptr<TranscriptionServer> server = nullptr);
    ~TranscriptionEngine();
    TranscriptionEngine(const TranscriptionEngine&) = delete;
    TranscriptionEngine& operator=(const TranscriptionEngine&) = delete;

    const QString& language() const { return m_language; }

    // The format the recognizer wants its audio in; nothing when it names none.
    std::optional<AudioFormat> bestAudioFormat() const { return m_backend.bestAudioFormat(m_language); }

    // Opens the audio stream, starts reading results and starts the recognizer. The returned
    // stream is what the capture thread writes every converted buffer into. Throws when the
    // recognizer cannot start.
    QCoro::Task<std::shared_ptr<AnalyzerInputStream>> start();

    // Ends the audio, lets the recognizer settle (bounded by finalizeLimit, then
    // resultsWaitLimit) and returns the finalised text trimmed of surrounding whitespace; it may
    // be empty. Failures of the recognizer are logged, not thrown, except a model that could not
    // be loaded (ModelLoadError): nothing was recognized, and the next dictation would fail too.
    QCoro::Task<QString> finish();

    // How long after finish() the server's text is waited for; finalizeLimit unless set. A
    // dictation keeps the default; a recording transcribed from a file, where nobody waits on a
    // key, gives a long one the time the server needs for it.
    void setServerLimit(std::chrono::milliseconds limit) { m_serverLimit = limit; }

    // Abandons the dictation.
    QCoro::Task<> cancel();

    // After finish(): why the server's text was not used, when a server was asked and failed.
    const std::optional<QString>& serverFailure() const { return m_serverFailure; }
    // After finish(): whether the server was asked at all (not for a recording without speech).
    bool askedServer() const { return m_askedServer; }

    // The recording as the server gets it: 16 kHz mono 16-bit samples, converted when the
    // recognizer was fed another format.
    static std::vector<std::int16_t> serverSamples(const std::vector<AnalyzerInput>& recording);

    // Whether the model of `language` is installed; identifiers are compared exactly.
    static QCoro::Task<bool> isModelInstalled(SpeechBackend& backend, const QString& language);
    // Installs the model of `language` unless present. Throws MurmurlyError (modelUnsupported)
    // for a language the recognizer does not support, or the download's own error.
    static QCoro::Task<> installModel(SpeechBackend& backend, const QString& language);

private:
    static QCoro::Task<> withTimeout(Clock& clock, std::chrono::milliseconds limit, QCoro::Task<> operation);
    QCoro::Task<QString> finishOnDevice();
    static QCoro::Task<> askServer(std::shared_ptr<TranscriptionServer> server, QByteArray wav,
                                   QString language, std::chrono::milliseconds limit,
                                   std::shared_ptr<ServerTranscript> answer);
    struct Reading {
        QString text;
        std::optional<QString> loadFailure;
    };
    static QCoro::Task<> consumeResults(std::shared_ptr<ResultStream> results,
                                        std::shared_ptr<Reading> reading);

    SpeechBackend& m_backend;
    Clock& m_clock;
    const QString m_language;
    std::unique_ptr<RecognizerSession> m_session;
    std::shared_ptr<AnalyzerInputStream> m_inputContinuation;
    std::optional<QCoro::Task<>> m_recognitionTask;
    // Shared with the results reader, which may outlive a wait that gave up on it.
    std::shared_ptr<Reading> m_reading;
    std::shared_ptr<TranscriptionServer> m_server;
    std::chrono::milliseconds m_serverLimit = finalizeLimit;
    std::shared_ptr<AnalyzerInputStream> m_recordedInput;
    std::optional<QString> m_serverFailure;
    bool m_askedServer = false;
};

} // namespace murmurly
