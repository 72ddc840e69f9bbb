#pragma once

#include "speech/AudioBuffer.h"
#include "speech/AudioFormat.h"

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <optional>

namespace murmurly {

// The audio of a RIFF/WAVE file: integer PCM of 8, 16, 24 or 32 bits and IEEE float of 32 or 64
// bits, plain or in the extensible layout, at any rate and channel count. 16-bit files keep
// their samples exactly (int16); everything else is read as float32 in [-1, 1]. Files that are
// not WAVE, use another encoding, or are cut short are refused with a sentence saying why.
class WavFile {
public:
    enum class Encoding { integer, floatingPoint };

    // The file at `path`; on failure nothing, and `error` is a sentence that names the file and
    // says why ("Cannot read "x.wav": it is not a WAV file (…).").
    static std::optional<WavFile> read(const QString& path, QString& error);
    // The same for the bytes of a file; on failure `error` is the reason alone, a lower-case
    // clause ("it is cut short: …").
    static std::optional<WavFile> parse(const QByteArray& bytes, QString& error);

    const AudioBuffer& audio() const { return m_audio; }
    const AudioFormat& format() const { return m_audio.format(); }
    std::int64_t frameCount() const { return m_audio.frameLength(); }
    double duration() const { return m_audio.duration(); }

    // A plain 16-bit PCM file holding `samples` (interleaved frames of `channels` channels).
    static QByteArray encodeInt16(const std::int16_t* samples, std::int64_t sampleCount, int sampleRate,
                                  int channels);

    // What the file itself stores.
    Encoding encoding() const { return m_encoding; }
    int bitsPerSample() const { return m_bitsPerSample; }

private:
    WavFile(AudioBuffer audio, Encoding encoding, int bitsPerSample)
        : m_audio(std::move(audio))
        , m_encoding(encoding)
        , m_bitsPerSample(bitsPerSample) {}

    AudioBuffer m_audio;
    Encoding m_encoding;
    int m_bitsPerSample;
};

} // namespace murmurly
