#include "speech/WavFile.h"

#include <QFile>
#include <QFileInfo>
#include <QtEndian>

#include <cmath>
#include <cstring>

namespace murmurly {

namespace {

constexpr quint16 formatIntegerPcm = 0x0001;
constexpr quint16 formatIeeeFloat = 0x0003;
constexpr quint16 formatExtensible = 0xFFFE;
// Streaming writers that cannot seek back put this in the data chunk's size: "to the end".
constexpr quint32 unknownDataSize = 0xFFFFFFFF;

// The 14 bytes that follow the format tag in the sub-format GUID of an extensible format chunk
// for every standard encoding (KSDATAFORMAT_SUBTYPE_PCM, _IEEE_FLOAT, …).
constexpr unsigned char standardGuidTail[14] = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                                                0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

quint16 u16(const char* p) {
    return qFromLittleEndian<quint16>(p);
}
quint32 u32(const char* p) {
    return qFromLittleEndian<quint32>(p);
}

struct Format {
    WavFile::Encoding encoding = WavFile::Encoding::integer;
    int channels = 0;
    quint32 sampleRate = 0;
    int blockAlign = 0;
    int bits = 0;
};

// Reads a format chunk body of `size` bytes; false with `error` set when it cannot be used.
bool parseFormat(const char* body, quint32 size, Format& format, QString& error) {
    quint16 tag = u16(body);
    format.channels = u16(body + 2);
    format.sampleRate = u32(body + 4);
    format.blockAlign = u16(body + 12);
    format.bits = u16(body + 14);
    if (tag == formatExtensible) {
        // cbSize, valid bits, channel mask, then the 16-byte sub-format GUID.
        if (size < 40 || u16(body + 16) < 22) {
            error = QStringLiteral("its extensible format chunk is cut short");
            return false;
        }
        if (std::memcmp(body + 26, standardGuidTail, sizeof standardGuidTail) != 0) {
            error = QStringLiteral("its samples are in an unsupported encoding (an unknown sub-format); only "
                                   "integer PCM and IEEE float are read");
            return false;
        }
        tag = u16(body + 24);
    }
    if (tag == formatIntegerPcm) {
        format.encoding = WavFile::Encoding::integer;
        if (format.bits != 8 && format.bits != 16 && format.bits != 24 && format.bits != 32) {
            error = QStringLiteral("its %1-bit integer samples are not supported (8, 16, 24 and 32 bits are)")
                        .arg(format.bits);
            return false;
        }
    } else if (tag == formatIeeeFloat) {
        format.encoding = WavFile::Encoding::floatingPoint;
        if (format.bits != 32 && format.bits != 64) {
            error = QStringLiteral("its %1-bit floating-point samples are not supported (32 and 64 bits are)")
                        .arg(format.bits);
            return false;
        }
    } else {
        error = QStringLiteral("its samples are in an unsupported encoding (format tag 0x%1); only integer "
                               "PCM and IEEE float are read")
                    .arg(tag, 4, 16, QLatin1Char('0'));
        return false;
    }
    if (format.channels < 1 || format.sampleRate < 1 ||
        format.blockAlign != format.channels * format.bits / 8) {
        error = QStringLiteral("its format chunk is inconsistent (%1 channels, %2 Hz, %3 bytes per frame of "
                               "%4-bit samples)")
                    .arg(format.channels)
                    .arg(format.sampleRate)
                    .arg(format.blockAlign)
                    .arg(format.bits);
        return false;
    }
    return true;
}

float decodeSample(const char* p, const Format& format) {
    if (format.encoding == WavFile::Encoding::floatingPoint) {
        const double value =
            format.bits == 32 ? double(qFromLittleEndian<float>(p)) : qFromLittleEndian<double>(p);
        // Garbage that happens to parse must not poison the resampler's filter state.
        return std::isfinite(value) ? float(value) : 0.0f;
    }
    switch (format.bits) {
    case 8: // the only unsigned width
        return float(int(static_cast<unsigned char>(*p)) - 128) / 128.0f;
    case 24: {
        const auto* b = reinterpret_cast<const unsigned char*>(p);
        std::int32_t value =
            std::int32_t(std::uint32_t(b[0]) | std::uint32_t(b[1]) << 8 | std::uint32_t(b[2]) << 16);
        if (value & 0x800000) value -= 0x1000000;
        return float(value) / 8388608.0f;
    }
    default: // 32
        return float(double(qFromLittleEndian<qint32>(p)) / 2147483648.0);
    }
}

std::optional<AudioBuffer> decode(const char* data, std::int64_t frames, const Format& format) {
    const int samplesPerFrame = format.channels;
    const bool keepInt16 = format.encoding == WavFile::Encoding::integer && format.bits == 16;
    const AudioFormat audioFormat = keepInt16 ? AudioFormat::int16(format.sampleRate, format.channels)
                                              : AudioFormat::float32(format.sampleRate, format.channels);
    std::optional<AudioBuffer> buffer = AudioBuffer::allocate(audioFormat, frames);
    if (!buffer) return std::nullopt;
    buffer->setFrameLength(frames);
    const std::int64_t samples = frames * samplesPerFrame;
    const int bytesPerSample = format.bits / 8;
    if (keepInt16) {
        std::int16_t* out = buffer->int16Samples();
        for (std::int64_t i = 0; i < samples; ++i)
            out[i] = qFromLittleEndian<qint16>(data + i * 2);
    } else {
        float* out = buffer->floatSamples();
        for (std::int64_t i = 0; i < samples; ++i)
            out[i] = decodeSample(data + i * bytesPerSample, format);
    }
    return buffer;
}

} // namespace

QByteArray WavFile::encodeInt16(const std::int16_t* samples, std::int64_t sampleCount, int sampleRate,
                                int channels) {
    const quint32 dataBytes = quint32(sampleCount * 2);
    const quint16 blockAlign = quint16(channels * 2);
    QByteArray out(44 + qsizetype(dataBytes), Qt::Uninitialized);
    char* p = out.data();
    std::memcpy(p, "RIFF", 4);
    qToLittleEndian<quint32>(36 + dataBytes, p + 4);
    std::memcpy(p + 8, "WAVEfmt ", 8);
    qToLittleEndian<quint32>(16, p + 16);
    qToLittleEndian<quint16>(formatIntegerPcm, p + 20);
    qToLittleEndian<quint16>(quint16(channels), p + 22);
    qToLittleEndian<quint32>(quint32(sampleRate), p + 24);
    qToLittleEndian<quint32>(quint32(sampleRate) * blockAlign, p + 28);
    qToLittleEndian<quint16>(blockAlign, p + 32);
    qToLittleEndian<quint16>(16, p + 34);
    std::memcpy(p + 36, "data", 4);
    qToLittleEndian<quint32>(dataBytes, p + 40);
    char* data = p + 44;
    for (std::int64_t i = 0; i < sampleCount; ++i)
        qToLittleEndian<qint16>(samples[i], data + i * 2);
    return out;
}

std::optional<WavFile> WavFile::parse(const QByteArray& bytes, QString& error) {
    const char* base = bytes.constData();
    const qint64 end = bytes.size();
    if (end < 12 || std::memcmp(base, "RIFF", 4) != 0 || std::memcmp(base + 8, "WAVE", 4) != 0) {
        error = QStringLiteral("it is not a WAV file (it does not begin with a RIFF/WAVE header)");
        return std::nullopt;
    }
    std::optional<Format> format;
    // The RIFF size in the header is often wrong in files written by streaming tools; the chunks
    // themselves are walked within the bytes that exist.
    qint64 pos = 12;
    while (pos + 8 <= end) {
        const char* header = base + pos;
        const quint32 size = u32(header + 4);
        const qint64 body = pos + 8;
        const qint64 remaining = end - body;
        if (std::memcmp(header, "fmt ", 4) == 0) {
            if (size < 16 || qint64(size) > remaining) {
                error = QStringLiteral("its format chunk is cut short");
                return std::nullopt;
            }
            Format parsed;
            if (!parseFormat(base + body, size, parsed, error)) return std::nullopt;
            format = parsed;
        } else if (std::memcmp(header, "data", 4) == 0) {
            if (!format) {
                error = QStringLiteral("it has no format chunk before its audio data");
                return std::nullopt;
            }
            qint64 dataBytes = size;
            if (size == unknownDataSize) {
                // Whatever a stream wrote before it ended, in whole frames.
                dataBytes = remaining - remaining % format->blockAlign;
            } else if (qint64(size) > remaining) {
                error = QStringLiteral(
                            "it is cut short: its audio data chunk declares %1 bytes but only %2 follow")
                            .arg(size)
                            .arg(remaining);
                return std::nullopt;
            } else if (dataBytes % format->blockAlign != 0) {
                error = QStringLiteral("its audio data (%1 bytes) is not a whole number of %2-byte frames")
                            .arg(dataBytes)
                            .arg(format->blockAlign);
                return std::nullopt;
            }
            std::optional<AudioBuffer> audio = decode(base + body, dataBytes / format->blockAlign, *format);
            if (!audio) {
                error = QStringLiteral("it is too large to read into memory");
                return std::nullopt;
            }
            return WavFile(std::move(*audio), format->encoding, format->bits);
        } else if (qint64(size) > remaining) {
            error = QStringLiteral(
                "it is cut short: a chunk before the audio data runs past the end of the file");
            return std::nullopt;
        }
        pos = body + qint64(size) + (size & 1);
    }
    error = format ? QStringLiteral("it has no audio data chunk") : QStringLiteral("it has no format chunk");
    return std::nullopt;
}

std::optional<WavFile> WavFile::read(const QString& path, QString& error) {
    const auto fail = [&](const QString& reason) {
        error = QStringLiteral("Cannot read \"%1\": %2.").arg(path, reason);
        return std::nullopt;
    };
    const QFileInfo info(path);
    if (!info.exists()) return fail(QStringLiteral("there is no such file"));
    if (info.isDir()) return fail(QStringLiteral("it is a folder"));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        QString reason = file.errorString();
        if (!reason.isEmpty()) reason[0] = reason[0].toLower();
        return fail(reason);
    }
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        QString reason = file.errorString();
        if (!reason.isEmpty()) reason[0] = reason[0].toLower();
        return fail(reason);
    }
    QString reason;
    std::optional<WavFile> wav = parse(bytes, reason);
    if (!wav) return fail(reason);
    return wav;
}

} // namespace murmurly
