#include "speech/WavFile.h"

#include "SpeechCorpus.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtEndian>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

using namespace murmurly;
using murmurly::testing::libriVoxFolder;
using murmurly::testing::readWav;

namespace {

void put16(QByteArray& bytes, quint16 value) {
    char b[2];
    qToLittleEndian(value, b);
    bytes.append(b, 2);
}

void put32(QByteArray& bytes, quint32 value) {
    char b[4];
    qToLittleEndian(value, b);
    bytes.append(b, 4);
}

QByteArray chunk(const char* id, const QByteArray& body) {
    QByteArray bytes(id, 4);
    put32(bytes, quint32(body.size()));
    bytes += body;
    if (body.size() % 2 == 1) bytes += '\0'; // RIFF pads chunks to an even length
    return bytes;
}

QByteArray formatBody(quint16 tag, quint16 channels, quint32 rate, quint16 bits) {
    QByteArray body;
    put16(body, tag);
    put16(body, channels);
    put32(body, rate);
    put32(body, rate * channels * bits / 8);
    put16(body, quint16(channels * bits / 8));
    put16(body, bits);
    return body;
}

// The extensible layout, as writers use for more than two channels or more than 16 bits.
QByteArray extensibleFormatBody(quint16 subTag, quint16 channels, quint32 rate, quint16 bits) {
    QByteArray body = formatBody(0xFFFE, channels, rate, bits);
    put16(body, 22);   // cbSize
    put16(body, bits); // valid bits
    put32(body, 0x3F); // channel mask
    put16(body, subTag);
    const unsigned char tail[14] = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                                    0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
    body.append(reinterpret_cast<const char*>(tail), 14);
    return body;
}

QByteArray riff(const QByteArray& chunks) {
    QByteArray bytes("RIFF");
    put32(bytes, quint32(4 + chunks.size()));
    bytes += "WAVE";
    bytes += chunks;
    return bytes;
}

QByteArray wav(const QByteArray& format, const QByteArray& data) {
    return riff(chunk("fmt ", format) + chunk("data", data));
}

std::optional<WavFile> parse(const QByteArray& bytes, QString& error) {
    return WavFile::parse(bytes, error);
}

} // namespace

TEST(WavFile, SixteenBitSamplesAreKeptExactly) {
    QByteArray data;
    for (qint16 v : {qint16(0), qint16(1), qint16(-1), qint16(32767), qint16(-32768), qint16(1234)})
        put16(data, quint16(v));
    QString error;
    const std::optional<WavFile> file = parse(wav(formatBody(1, 2, 22050, 16), data), error);
    ASSERT_TRUE(file) << error.toStdString();
    EXPECT_EQ(file->format(), AudioFormat::int16(22050, 2));
    EXPECT_EQ(file->encoding(), WavFile::Encoding::integer);
    EXPECT_EQ(file->bitsPerSample(), 16);
    ASSERT_EQ(file->frameCount(), 3);
    const std::int16_t* s = file->audio().int16Samples();
    EXPECT_EQ(s[0], 0);
    EXPECT_EQ(s[1], 1);
    EXPECT_EQ(s[2], -1);
    EXPECT_EQ(s[3], 32767);
    EXPECT_EQ(s[4], -32768);
    EXPECT_EQ(s[5], 1234);
    EXPECT_DOUBLE_EQ(file->duration(), 3.0 / 22050);
}

TEST(WavFile, EightBitSamplesAreUnsignedAroundMiddle128) {
    QByteArray data;
    for (unsigned char v : {0, 64, 128, 255})
        data.append(char(v));
    QString error;
    const std::optional<WavFile> file = parse(wav(formatBody(1, 1, 8000, 8), data), error);
    ASSERT_TRUE(file) << error.toStdString();
    EXPECT_EQ(file->format(), AudioFormat::float32(8000, 1));
    ASSERT_EQ(file->frameCount(), 4);
    const float* f = file->audio().floatSamples();
    EXPECT_FLOAT_EQ(f[0], -1.0f);
    EXPECT_FLOAT_EQ(f[1], -0.5f);
    EXPECT_FLOAT_EQ(f[2], 0.0f);
    EXPECT_FLOAT_EQ(f[3], 127.0f / 128.0f);
}

TEST(WavFile, TwentyFourBitSamplesAreSignExtended) {
    QByteArray data;
    for (quint32 v : {0x000000u, 0x7FFFFFu, 0x800000u, 0xFFFFFFu, 0x400000u}) {
        data.append(char(v & 0xFF));
        data.append(char((v >> 8) & 0xFF));
        data.append(char((v >> 16) & 0xFF));
    }
    QString error;
    const std::optional<WavFile> file = parse(wav(formatBody(1, 1, 96000, 24), data), error);
    ASSERT_TRUE(file) << error.toStdString();
    EXPECT_EQ(file->format(), AudioFormat::float32(96000, 1));
    const float* f = file->audio().floatSamples();
    EXPECT_FLOAT_EQ(f[0], 0.0f);
    EXPECT_NEAR(f[1], 1.0f, 1e-6);
    EXPECT_FLOAT_EQ(f[2], -1.0f);
    EXPECT_FLOAT_EQ(f[3], -1.0f / 8388608.0f);
    EXPECT_FLOAT_EQ(f[4], 0.5f);
}

TEST(WavFile, ThirtyTwoBitIntegerSamplesAreScaledToOne) {
    QByteArray data;
    for (qint32 v : {0, 2147483647, -2147483647 - 1, 1 << 30})
        put32(data, quint32(v));
    QString error;
    const std::optional<WavFile> file = parse(wav(formatBody(1, 1, 48000, 32), data), error);
    ASSERT_TRUE(file) << error.toStdString();
    const float* f = file->audio().floatSamples();
    EXPECT_FLOAT_EQ(f[0], 0.0f);
    EXPECT_NEAR(f[1], 1.0f, 1e-6);
    EXPECT_FLOAT_EQ(f[2], -1.0f);
    EXPECT_FLOAT_EQ(f[3], 0.5f);
}

TEST(WavFile, FloatSamplesOf32And64BitsAreReadAndNonFiniteOnesSilenced) {
    QByteArray data32;
    for (float v : {0.25f, -0.75f, std::nanf(""), INFINITY}) {
        char b[4];
        qToLittleEndian(v, b);
        data32.append(b, 4);
    }
    QString error;
    std::optional<WavFile> file = parse(wav(formatBody(3, 2, 44100, 32), data32), error);
    ASSERT_TRUE(file) << error.toStdString();
    EXPECT_EQ(file->format(), AudioFormat::float32(44100, 2));
    EXPECT_EQ(file->encoding(), WavFile::Encoding::floatingPoint);
    ASSERT_EQ(file->frameCount(), 2);
    const float* f = file->audio().floatSamples();
    EXPECT_FLOAT_EQ(f[0], 0.25f);
    EXPECT_FLOAT_EQ(f[1], -0.75f);
    EXPECT_FLOAT_EQ(f[2], 0.0f);
    EXPECT_FLOAT_EQ(f[3], 0.0f);

    QByteArray data64;
    for (double v : {0.5, -0.125}) {
        char b[8];
        qToLittleEndian(v, b);
        data64.append(b, 8);
    }
    file = parse(wav(formatBody(3, 1, 16000, 64), data64), error);
    ASSERT_TRUE(file) << error.toStdString();
    EXPECT_EQ(file->bitsPerSample(), 64);
    EXPECT_FLOAT_EQ(file->audio().floatSamples()[0], 0.5f);
    EXPECT_FLOAT_EQ(file->audio().floatSamples()[1], -0.125f);
}

TEST(WavFile, TheExtensibleLayoutIsReadForIntegerAndFloat) {
    QByteArray data;
    for (int frame = 0; frame < 2; ++frame)
        for (int channel = 0; channel < 6; ++channel) {
            const quint32 v = quint32(channel) << 20; // 24-bit
            data.append(char(v & 0xFF));
            data.append(char((v >> 8) & 0xFF));
            data.append(char((v >> 16) & 0xFF));
        }
    QString error;
    std::optional<WavFile> file = parse(wav(extensibleFormatBody(1, 6, 48000, 24), data), error);
    ASSERT_TRUE(file) << error.toStdString();
    EXPECT_EQ(file->format(), AudioFormat::float32(48000, 6));
    ASSERT_EQ(file->frameCount(), 2);
    EXPECT_FLOAT_EQ(file->audio().floatSamples()[6 + 3], 3.0f / 8.0f);

    QByteArray floats;
    char b[4];
    qToLittleEndian(0.125f, b);
    floats.append(b, 4);
    file = parse(wav(extensibleFormatBody(3, 1, 16000, 32), floats), error);
    ASSERT_TRUE(file) << error.toStdString();
    EXPECT_EQ(file->encoding(), WavFile::Encoding::floatingPoint);
    EXPECT_FLOAT_EQ(file->audio().floatSamples()[0], 0.125f);

    // Another sub-format GUID is another encoding.
    QByteArray unknown = extensibleFormatBody(1, 1, 16000, 16);
    unknown[unknown.size() - 1] = 0x00;
    EXPECT_FALSE(parse(wav(unknown, QByteArray(2, '\0')), error));
    EXPECT_TRUE(error.contains(QStringLiteral("unsupported encoding"))) << error.toStdString();
}

TEST(WavFile, OtherChunksAndTheirPaddingAreSkipped) {
    QByteArray data;
    put16(data, 42);
    const QByteArray chunks =
        chunk("LIST", QByteArray("odd", 3)) + chunk("fmt ", formatBody(1, 1, 16000, 16)) +
        chunk("fact", QByteArray(4, '\0')) + chunk("data", data) + chunk("id3 ", QByteArray(10, 'x'));
    QString error;
    const std::optional<WavFile> file = parse(riff(chunks), error);
    ASSERT_TRUE(file) << error.toStdString();
    ASSERT_EQ(file->frameCount(), 1);
    EXPECT_EQ(file->audio().int16Samples()[0], 42);
}

TEST(WavFile, AStreamedFileWithoutADataSizeIsReadToItsEndInWholeFrames) {
    QByteArray data;
    for (int i = 0; i < 5; ++i)
        put16(data, quint16(i));
    data.append('\x07'); // half a sample: where the stream was cut
    QString error;
    QByteArray streamed("data");
    put32(streamed, 0xFFFFFFFF);
    streamed += data; // unpadded: the stream simply ended
    const std::optional<WavFile> file =
        parse(riff(chunk("fmt ", formatBody(1, 1, 16000, 16)) + streamed), error);
    ASSERT_TRUE(file) << error.toStdString();
    ASSERT_EQ(file->frameCount(), 5);
    EXPECT_EQ(file->audio().int16Samples()[4], 4);
}

TEST(WavFile, AnEmptyDataChunkIsNoAudio) {
    QString error;
    const std::optional<WavFile> file = parse(wav(formatBody(1, 1, 16000, 16), {}), error);
    ASSERT_TRUE(file) << error.toStdString();
    EXPECT_EQ(file->frameCount(), 0);
}

TEST(WavFile, FilesThatAreNotWaveAreRefusedWithAReason) {
    QString error;
    for (const QByteArray& bytes :
         {QByteArray(), QByteArray("RIFF"), QByteArray("ID3\x03\x00\x00\x00\x00\x00\x00 some mp3 data"),
          QByteArray("RIFF\x10\x00\x00\x00"
                     "AVI LIST",
                     16),
          QByteArray("just some text, not audio at all\n")}) {
        error.clear();
        EXPECT_FALSE(parse(bytes, error));
        EXPECT_EQ(error, QStringLiteral("it is not a WAV file (it does not begin with a RIFF/WAVE header)"));
    }
}

TEST(WavFile, TruncatedFilesAreRefusedWithAReason) {
    QByteArray data;
    for (int i = 0; i < 100; ++i)
        put16(data, quint16(i));
    const QByteArray whole = wav(formatBody(1, 1, 16000, 16), data);
    QString error;

    EXPECT_FALSE(parse(whole.left(whole.size() - 10), error));
    EXPECT_EQ(error,
              QStringLiteral("it is cut short: its audio data chunk declares 200 bytes but only 190 follow"));

    EXPECT_FALSE(parse(whole.left(12 + 8 + 10), error)); // inside the format chunk
    EXPECT_EQ(error, QStringLiteral("its format chunk is cut short"));

    EXPECT_FALSE(parse(whole.left(12 + 8 + 16), error)); // the format chunk alone
    EXPECT_EQ(error, QStringLiteral("it has no audio data chunk"));

    EXPECT_FALSE(parse(whole.left(12), error)); // the header alone
    EXPECT_EQ(error, QStringLiteral("it has no format chunk"));

    const QByteArray listThenCut = riff(chunk("LIST", QByteArray(100, 'x'))).left(12 + 8 + 50);
    EXPECT_FALSE(parse(listThenCut, error));
    EXPECT_EQ(error,
              QStringLiteral("it is cut short: a chunk before the audio data runs past the end of the file"));

    // Every shorter prefix of a valid file is refused, none crashes or reads garbage.
    for (qsizetype length = 0; length < whole.size(); ++length) {
        error.clear();
        EXPECT_FALSE(parse(whole.left(length), error)) << length;
        EXPECT_FALSE(error.isEmpty()) << length;
    }
}

TEST(WavFile, UnsupportedEncodingsAndInconsistentFormatsAreRefusedWithAReason) {
    QString error;
    EXPECT_FALSE(parse(wav(formatBody(0x0055, 2, 44100, 16), QByteArray(4, '\0')), error)); // MP3
    EXPECT_EQ(error,
              QStringLiteral("its samples are in an unsupported encoding (format tag 0x0055); only integer "
                             "PCM and IEEE float are read"));
    EXPECT_FALSE(parse(wav(formatBody(1, 1, 16000, 12), QByteArray(4, '\0')), error));
    EXPECT_EQ(error,
              QStringLiteral("its 12-bit integer samples are not supported (8, 16, 24 and 32 bits are)"));
    EXPECT_FALSE(parse(wav(formatBody(3, 1, 16000, 16), QByteArray(4, '\0')), error));
    EXPECT_EQ(error,
              QStringLiteral("its 16-bit floating-point samples are not supported (32 and 64 bits are)"));
    EXPECT_FALSE(parse(wav(formatBody(1, 0, 16000, 16), QByteArray(4, '\0')), error));
    EXPECT_TRUE(error.startsWith(QStringLiteral("its format chunk is inconsistent (0 channels")))
        << error.toStdString();
    EXPECT_FALSE(parse(wav(formatBody(1, 1, 0, 16), QByteArray(4, '\0')), error));
    EXPECT_TRUE(error.startsWith(QStringLiteral("its format chunk is inconsistent"))) << error.toStdString();
    QByteArray badAlign = formatBody(1, 2, 16000, 16);
    badAlign[12] = 3; // block align 3 for two 16-bit channels
    EXPECT_FALSE(parse(wav(badAlign, QByteArray(6, '\0')), error));
    EXPECT_TRUE(error.startsWith(QStringLiteral("its format chunk is inconsistent"))) << error.toStdString();

    EXPECT_FALSE(parse(wav(formatBody(1, 2, 16000, 16), QByteArray(6, '\0')), error));
    EXPECT_EQ(error, QStringLiteral("its audio data (6 bytes) is not a whole number of 4-byte frames"));

    EXPECT_FALSE(
        parse(riff(chunk("data", QByteArray(4, '\0')) + chunk("fmt ", formatBody(1, 1, 16000, 16))), error));
    EXPECT_EQ(error, QStringLiteral("it has no format chunk before its audio data"));
}

TEST(WavFile, ReadingNamesTheFileAndWhyItCannotBeRead) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    QString error;

    const QString missing = dir.filePath(QStringLiteral("missing.wav"));
    EXPECT_FALSE(WavFile::read(missing, error));
    EXPECT_EQ(error, QStringLiteral("Cannot read \"%1\": there is no such file.").arg(missing));

    EXPECT_FALSE(WavFile::read(dir.path(), error));
    EXPECT_EQ(error, QStringLiteral("Cannot read \"%1\": it is a folder.").arg(dir.path()));

    const QString text = dir.filePath(QStringLiteral("notes.wav"));
    QFile file(text);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("these are notes, not a recording\n");
    file.close();
    EXPECT_FALSE(WavFile::read(text, error));
    EXPECT_EQ(error,
              QStringLiteral(
                  "Cannot read \"%1\": it is not a WAV file (it does not begin with a RIFF/WAVE header).")
                  .arg(text));
}

TEST(WavFile, ALibriVoxRecordingReadsAs16kMonoWithTheSamplesOfTheTestReader) {
    const QString path = libriVoxFolder() + QStringLiteral("/sense_and_sensibility_01_austen_64kb-0880.wav");
    QString error;
    const std::optional<WavFile> file = WavFile::read(path, error);
    ASSERT_TRUE(file) << error.toStdString();
    EXPECT_EQ(file->format(), AudioFormat::int16(16000, 1));
    const murmurly::testing::WavAudio reference = readWav(path);
    ASSERT_EQ(std::size_t(file->frameCount()), reference.samples.size());
    EXPECT_EQ(
        std::memcmp(file->audio().int16Samples(), reference.samples.data(), reference.samples.size() * 2), 0);
}
