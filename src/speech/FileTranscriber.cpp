#include "speech/FileTranscriber.h"

#include "core/Clock.h"
#include "speech/AnalyzerInputStream.h"
#include "speech/AudioConverter.h"
#include "speech/MurmurlyError.h"
#include "speech/TranscriptionEngine.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <stdexcept>
#include <vector>

namespace murmurly {

namespace {

AudioBuffer allocateOrThrow(const AudioFormat& format, std::int64_t frames) {
    std::optional<AudioBuffer> buffer = AudioBuffer::allocate(format, frames);
    if (!buffer) throw std::bad_alloc();
    return std::move(*buffer);
}

// Frames [offset, offset + frames) of `audio` as a buffer of their own.
AudioBuffer slice(const AudioBuffer& audio, std::int64_t offset, std::int64_t frames) {
    AudioBuffer piece = allocateOrThrow(audio.format(), frames);
    piece.setFrameLength(frames);
    const std::size_t bytesPerFrame = std::size_t(audio.format().bytesPerFrame());
    std::memcpy(piece.data(), audio.data() + std::size_t(offset) * bytesPerFrame,
                std::size_t(frames) * bytesPerFrame);
    return piece;
}

} // namespace

FileTranscriber::FileTranscriber(SpeechBackend& backend, Clock& clock)
    : m_backend(backend)
    , m_clock(clock) {
}

std::int64_t FileTranscriber::framesPerBuffer(double sampleRate) {
    return std::max<std::int64_t>(1, std::int64_t(sampleRate * bufferSeconds));
}

void FileTranscriber::convert(const AudioBuffer& audio, const AudioFormat& target,
                              const std::function<void(AudioBuffer)>& onBuffer) {
    const AudioFormat& source = audio.format();
    const std::int64_t total = audio.frameLength();
    const std::int64_t piece = framesPerBuffer(source.sampleRate);

    if (source == target) {
        for (std::int64_t offset = 0; offset < total; offset += piece)
            onBuffer(slice(audio, offset, std::min(piece, total - offset)));
        return;
    }

    const std::unique_ptr<AudioConverter> converter = AudioConverter::create(source, target);
    if (!converter) throw MurmurlyError::audioConverterUnavailable();
    const double ratio = target.sampleRate / source.sampleRate;
    const std::int64_t expected = std::llround(double(total) * ratio);
    std::int64_t produced = 0;
    const auto push = [&](const AudioBuffer& input) {
        AudioBuffer output = allocateOrThrow(target, AudioInput::outputCapacity(ratio, input.frameLength()));
        const AudioConverter::Result result = converter->convert(input, output);
        if (result.status == AudioConverter::Status::error)
            throw std::runtime_error("Audio conversion failed: " + result.error.toStdString());
        // The silence that flushes the tail must not add audio of its own.
        const std::int64_t keep = std::min(output.frameLength(), expected - produced);
        if (keep <= 0) return;
        output.setFrameLength(keep);
        produced += keep;
        onBuffer(std::move(output));
    };

    for (std::int64_t offset = 0; offset < total; offset += piece)
        push(slice(audio, offset, std::min(piece, total - offset)));
    // The resampler holds back its filter delay; silence after the end pushes that tail out.
    for (int round = 0; produced < expected && round < 4; ++round) {
        const double owed = double(expected - produced) + converter->pendingOutputFrames();
        const std::int64_t frames = std::max(piece, std::int64_t(std::ceil(owed / ratio)) + 1);
        AudioBuffer silence = allocateOrThrow(source, frames); // allocated zeroed
        silence.setFrameLength(frames);
        push(silence);
    }
}

QCoro::Task<QString> FileTranscriber::transcribe(const AudioBuffer& audio, QString language,
                                                 std::shared_ptr<TranscriptionServer> server) {
    m_serverFailure.reset();
    TranscriptionEngine engine(m_backend, m_clock, language, std::move(server));
    // Nobody holds a key here: the server gets the time a long recording needs, bounded all the same.
    engine.setServerLimit(TranscriptionEngine::finalizeLimit +
                          std::chrono::milliseconds(std::int64_t(audio.duration() * 2000.0)));
    const std::optional<AudioFormat> format = engine.bestAudioFormat();
    if (!format) throw MurmurlyError::noAudioFormat();
    std::vector<AudioBuffer> buffers;
    convert(audio, *format, [&buffers](AudioBuffer buffer) { buffers.push_back(std::move(buffer)); });
    // The whole recording is known before its first word is recognized: the recognizer learns
    // the voice and the microphone from all of it, instead of from the words it has passed.
    m_backend.adaptToRecording(language, buffers);
    const std::shared_ptr<AnalyzerInputStream> input = co_await engine.start();
    for (AudioBuffer& buffer : buffers)
        input->yield(AnalyzerInput{std::move(buffer)});
    buffers.clear();

    // finish() gives the recognizer a few seconds to settle the last words, which is plenty for
    // the end of a dictation but not for a long recording queued all at once: let it work through
    // the queue first. Bounded, so a recognizer that stopped cannot hold the caller for ever.
    const auto limit =
        std::chrono::seconds(30) + std::chrono::milliseconds(std::int64_t(audio.duration() * 2000.0));
    const Clock::TimePoint deadline =
        m_clock.now() + std::chrono::duration_cast<Clock::TimePoint::duration>(limit);
    while (input->queued() > 0 && m_clock.now() < deadline)
        co_await m_clock.sleep(drainPollInterval);

    QString text = co_await engine.finish();
    m_serverFailure = engine.serverFailure();
    co_return text;
}

} // namespace murmurly
