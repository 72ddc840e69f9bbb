#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace murmurly {

// The wire format of a transcription server (the OpenAI audio-transcriptions shape, which
// whisper.cpp's server, LocalAI and speaches also speak): one multipart/form-data POST holding the
// recording as a WAV file and a few text fields, answered by a JSON object whose "text" member is
// the transcript.
struct TranscriptionRequest {
    QByteArray wav;
    // Sent only when not empty.
    QString model;
    // The two-letter language code.
    QString language;
    // Separates the parts; chosen so that it occurs nowhere in the content.
    QByteArray boundary;

    // A request with a fresh random boundary that the WAV does not contain.
    static TranscriptionRequest make(QByteArray wav, QString model, const QString& dictationLanguage);

    // "en-US" → "en": the primary language subtag, lower case.
    static QString languageCode(const QString& dictationLanguage);

    // "multipart/form-data; boundary=…"
    QByteArray contentType() const;
    // Parts in this order: file, model (when set), language, response_format = json, temperature = 0.
    QByteArray body() const;

    // The most deeply nested JSON reply read; deeper ones are refused before they are built.
    static constexpr int maxReplyDepth = 64;

    // The transcript of a 200 reply body, trimmed; nothing (with `error`, a sentence that never
    // quotes the body) when the body is not a JSON object with a string member "text".
    static std::optional<QString> parseReply(const QByteArray& body, QString& error);
};

} // namespace murmurly
