#pragma once

#include "core/Clock.h"
#include "speech/AnalyzerInputStream.h"
#include "speech/AudioFormat.h"
#include "speech/RecognizerSession.h"
#include "speech/ResultStream.h"
#include "speech/SpeechBackend.h"

#include <QCoro/QCoroTask>
#include <QString>

#include <chrono>
#include <memory>
#include <optional>

namespace murmurly {

// Turns one dictation's audio into text. The controller makes one engine per dictation, starts
// it, feeds the returned input stream from the capture thread, and ends with finish() for the
// text or cancel() to throw the dictation away. The engine lives on the main thread; audio
// reaches the recognizer without passing through it.
class TranscriptionEngine {
public:
    // How long the recognizer may take to settle the last words after the audio ends.
    static constexpr std::chrono::milliseconds finalizeLimit{8000};
    // How long the results reader may take after that to hand over what it has.
    static constexpr std::chrono::milliseconds resultsWaitLimit{3000};

    TranscriptionEngine(SpeechBackend& backend, Clock& clock, const QString& language);
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

    // Abandons the dictation.
    QCoro::Task<> cancel();

    // Whether the model of `language` is installed; identifiers are compared exactly.
    static QCoro::Task<bool> isModelInstalled(SpeechBackend& backend, const QString& language);
    // Installs the model of `language` unless present. Throws MurmurlyError (modelUnsupported)
    // for a language the recognizer does not support, or the download's own error.
    static QCoro::Task<> installModel(SpeechBackend& backend, const QString& language);

private:
    static QCoro::Task<> withTimeout(Clock& clock, std::chrono::milliseconds limit, QCoro::Task<> operation);
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
};

} // namespace murmurly
