#pragma once

#include <QByteArray>
#include <QCoro/QCoroTask>
#include <QString>

#include <chrono>
#include <optional>

namespace murmurly {

// What a transcription server made of one recording: the transcript, or why there is none.
struct ServerTranscript {
    std::optional<QString> text;
    // A sentence for the log when `text` is absent; it never holds the key or the user's words.
    QString error;

    static ServerTranscript transcript(QString text) { return {std::move(text), {}}; }
    static ServerTranscript failure(QString error) { return {std::nullopt, std::move(error)}; }
};

// A speech-to-text service beside the on-device recognizer, asked once per dictation with the
// whole recording. Implementations never throw and always return within `limit`.
class TranscriptionServer {
public:
    virtual ~TranscriptionServer() = default;

    // `wav` is a 16 kHz mono 16-bit WAV file; `language` the dictation language ("en-US").
    virtual QCoro::Task<ServerTranscript> transcribe(QByteArray wav, QString language,
                                                     std::chrono::milliseconds limit) = 0;
};

} // namespace murmurly
