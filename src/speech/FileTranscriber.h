#pragma once

#include "speech/AudioBuffer.h"
#include "speech/AudioFormat.h"
#include "speech/AudioInput.h"
#include "speech/TranscriptionServer.h"

#include <QCoro/QCoroTask>
#include <QString>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace murmurly {

class Clock;
class SpeechBackend;

// Recognizes recorded audio the way a dictation recognizes the microphone: one transcription
// engine, the audio converted to the recognizer's format and fed in buffers the length a
// 48 kHz microphone delivers, then finish(). The recognizer first adapts to the whole recording
// (SpeechBackend::adaptToRecording), so a file alone is recognized as well as one heard after
// others. Main thread only.
class FileTranscriber {
public:
    // One capture buffer of a 48 kHz microphone (about 85 ms). The recognizer decides where
    // speech pauses after each buffer it is given, so files are fed in the same pieces as the
    // microphone is.
    static constexpr double bufferSeconds = double(AudioInput::tapBufferFrames) / 48000.0;
    // How often the queue of fed audio is looked at while the recognizer works through it.
    static constexpr std::chrono::milliseconds drainPollInterval{20};

    FileTranscriber(SpeechBackend& backend, Clock& clock);

    // The transcript of `audio` in `language`, trimmed; empty when nothing was recognized.
    // Throws MurmurlyError when the recognizer names no audio format or the audio cannot be
    // converted to it, and whatever the recognizer throws when it cannot start.
    // With a `server`, the same audio also goes to it and its text wins when it answers in time;
    // serverFailure() then says why it did not.
    QCoro::Task<QString> transcribe(const AudioBuffer& audio, QString language,
                                    std::shared_ptr<TranscriptionServer> server = nullptr);
    // Why the server's text of the last transcribe() was not used; nothing when it was, or when
    // no server was asked.
    const std::optional<QString>& serverFailure() const { return m_serverFailure; }

    // Input frames per buffer for audio at `sampleRate` (at least one).
    static std::int64_t framesPerBuffer(double sampleRate);

    // Brings `audio` to `target` and hands it on buffer by buffer (`audio` as it is when it is
    // already in `target`). The resampler's delayed tail is flushed, so the output holds exactly
    // as many frames as the input's duration at the target rate. Throws MurmurlyError
    // (audioConverterUnavailable) when the formats cannot be converted.
    static void convert(const AudioBuffer& audio, const AudioFormat& target,
                        const std::function<void(AudioBuffer)>& onBuffer);

private:
    SpeechBackend& m_backend;
    Clock& m_clock;
    std::optional<QString> m_serverFailure;
};

} // namespace murmurly
