#include "speech/TranscriptionRequest.h"
#include "MultipartForm.h"
#include "TestSignals.h"
#include "speech/VoiceActivity.h"
#include "speech/WavFile.h"

#include <gtest/gtest.h>

using namespace murmurly;
using murmurly::testing::joined;
using murmurly::testing::MultipartForm;
using murmurly::testing::silence;
using murmurly::testing::tone;

namespace {

constexpr int rate = 16000;

QByteArray sampleWav() {
    const std::vector<std::int16_t> samples = tone(rate, 0.25, -20);
    return WavFile::encodeInt16(samples.data(), std::int64_t(samples.size()), rate, 1);
}

bool speech(const std::vector<std::int16_t>& samples) {
    return VoiceActivity::containsSpeech(samples.data(), std::int64_t(samples.size()), rate);
}

} // namespace

// ---- the request ----

TEST(TranscriptionRequestTest, BodyHoldsFileModelLanguageFormatAndTemperatureInThatOrder) {
    const QByteArray wav = sampleWav();
    const TranscriptionRequest request =
        TranscriptionRequest::make(wav, QStringLiteral("whisper-1"), QStringLiteral("en-US"));
    const std::optional<QByteArray> boundary = MultipartForm::boundaryOf(request.contentType());
    ASSERT_TRUE(boundary);
    EXPECT_EQ(*boundary, request.boundary);

    const std::optional<MultipartForm> form = MultipartForm::parse(request.body(), *boundary);
    ASSERT_TRUE(form);
    EXPECT_EQ(form->names(),
              (QList<QByteArray>{"file", "model", "language", "response_format", "temperature"}));
    EXPECT_EQ(form->part("file")->data, wav);
    EXPECT_EQ(form->part("file")->filename, "audio.wav");
    EXPECT_EQ(form->part("file")->contentType, "audio/wav");
    EXPECT_EQ(form->part("model")->data, "whisper-1");
    EXPECT_EQ(form->part("language")->data, "en");
    EXPECT_EQ(form->part("response_format")->data, "json");
    EXPECT_EQ(form->part("temperature")->data, "0");
    for (const char* field : {"model", "language", "response_format", "temperature"}) {
        EXPECT_TRUE(form->part(field)->filename.isEmpty()) << field;
        EXPECT_TRUE(form->part(field)->contentType.isEmpty()) << field;
    }
}

TEST(TranscriptionRequestTest, ModelIsLeftOutWhenNotSet) {
    const TranscriptionRequest request =
        TranscriptionRequest::make(sampleWav(), QString(), QStringLiteral("de-DE"));
    const std::optional<MultipartForm> form = MultipartForm::parse(request.body(), request.boundary);
    ASSERT_TRUE(form);
    EXPECT_EQ(form->names(), (QList<QByteArray>{"file", "language", "response_format", "temperature"}));
    EXPECT_EQ(form->part("language")->data, "de");
}

TEST(TranscriptionRequestTest, LanguageIsTheTwoLetterCodeOfTheDictationLanguage) {
    EXPECT_EQ(TranscriptionRequest::languageCode(QStringLiteral("en-US")), QStringLiteral("en"));
    EXPECT_EQ(TranscriptionRequest::languageCode(QStringLiteral("fr_FR")), QStringLiteral("fr"));
    EXPECT_EQ(TranscriptionRequest::languageCode(QStringLiteral("DE")), QStringLiteral("de"));
    EXPECT_EQ(TranscriptionRequest::languageCode(QStringLiteral("zh-Hant-TW")), QStringLiteral("zh"));
}

TEST(TranscriptionRequestTest, BoundaryNeverOccursInTheAudio) {
    for (int i = 0; i < 50; ++i) {
        const TranscriptionRequest request =
            TranscriptionRequest::make(sampleWav(), QString(), QStringLiteral("en"));
        EXPECT_FALSE(request.wav.contains(request.boundary));
        EXPECT_GE(request.boundary.size(), 32);
    }
}

TEST(TranscriptionRequestTest, EncodedWavReadsBackToTheSameSamples) {
    const std::vector<std::int16_t> samples =
        joined({tone(rate, 0.1, -6), silence(rate, 0.01), tone(rate, 0.05, -30)});
    const QByteArray wav = WavFile::encodeInt16(samples.data(), std::int64_t(samples.size()), rate, 1);
    QString error;
    const std::optional<WavFile> file = WavFile::parse(wav, error);
    ASSERT_TRUE(file) << error.toStdString();
    EXPECT_EQ(file->format(), AudioFormat::int16(rate, 1));
    ASSERT_EQ(file->frameCount(), std::int64_t(samples.size()));
    EXPECT_TRUE(std::equal(samples.begin(), samples.end(), file->audio().int16Samples()));
}

// ---- the reply ----

TEST(TranscriptionRequestTest, ReplyTextIsTheTrimmedTextMember) {
    QString error;
    EXPECT_EQ(TranscriptionRequest::parseReply(R"({"text":" Hello there. "})", error),
              QStringLiteral("Hello there."));
    EXPECT_EQ(
        TranscriptionRequest::parseReply(R"({"task":"transcribe","text":"ok","segments":[{"id":0}]})", error),
        QStringLiteral("ok"));
    EXPECT_EQ(TranscriptionRequest::parseReply(R"({"text":"caf\u00e9"})", error), QString::fromUtf8("café"));
}

TEST(TranscriptionRequestTest, ReplyThatIsNotJsonIsRefused) {
    QString error;
    EXPECT_FALSE(TranscriptionRequest::parseReply("<html>Bad gateway</html>", error));
    EXPECT_TRUE(error.contains(QStringLiteral("not valid JSON")));
    EXPECT_FALSE(error.contains(QStringLiteral("gateway"))) << "the error must not quote the body";
    EXPECT_FALSE(TranscriptionRequest::parseReply("", error));
    EXPECT_FALSE(TranscriptionRequest::parseReply(R"({"text":"cut)", error));
}

TEST(TranscriptionRequestTest, ReplyWhoseTextIsNotAStringIsRefused) {
    for (const char* body : {R"({"text":42})", R"({"text":null})", R"({"text":["a"]})",
                             R"({"text":{"t":"a"}})", R"({"transcript":"a"})", R"(["text","a"])", R"("a")"}) {
        QString error;
        EXPECT_FALSE(TranscriptionRequest::parseReply(body, error)) << body;
        EXPECT_FALSE(error.isEmpty()) << body;
    }
}

TEST(TranscriptionRequestTest, ReplyWithInvalidUtf8IsRefused) {
    QString error;
    EXPECT_FALSE(TranscriptionRequest::parseReply(QByteArray("{\"text\":\"caf\xC3\x28\"}"), error));
    EXPECT_FALSE(TranscriptionRequest::parseReply(QByteArray("{\"text\":\"\xFF\xFE\"}"), error));
}

TEST(TranscriptionRequestTest, ReplyNestedSixtyFourLevelsIsReadAndDeeperIsRefused) {
    const auto nested = [](int levels) {
        // `levels` levels in all: the top object and levels - 1 arrays inside it.
        return QByteArray(R"({"text":"ok","x":)") + QByteArray(levels - 1, '[') +
               QByteArray(levels - 1, ']') + "}";
    };
    QString error;
    EXPECT_EQ(TranscriptionRequest::parseReply(nested(64), error), QStringLiteral("ok"))
        << error.toStdString();
    EXPECT_FALSE(TranscriptionRequest::parseReply(nested(65), error));
    EXPECT_TRUE(error.contains(QStringLiteral("64")));
    EXPECT_FALSE(TranscriptionRequest::parseReply(QByteArray(100000, '[') + QByteArray(100000, ']'), error));
}

// ---- speech or not ----

TEST(VoiceActivityTest, DigitalSilenceHoldsNoSpeech) {
    EXPECT_FALSE(speech(silence(rate, 3)));
    EXPECT_FALSE(speech({}));
}

TEST(VoiceActivityTest, SteadyHumHoldsNoSpeechHoweverLoud) {
    EXPECT_FALSE(speech(tone(rate, 3, -20, 100)));
    EXPECT_FALSE(speech(tone(rate, 3, -45, 50)));
}

TEST(VoiceActivityTest, SoundBelowTheAbsoluteLevelHoldsNoSpeech) {
    EXPECT_FALSE(speech(joined({silence(rate, 1), tone(rate, 1, -56), silence(rate, 1)})));
}

TEST(VoiceActivityTest, HalfASecondOfSoundOverQuietHoldsSpeech) {
    EXPECT_TRUE(speech(joined({silence(rate, 1), tone(rate, 0.5, -30), silence(rate, 1)})));
    EXPECT_TRUE(speech(joined({tone(rate, 1, -60, 60), tone(rate, 0.5, -40), tone(rate, 1, -60, 60)})));
}

TEST(VoiceActivityTest, AClickShorterThanTheMinimumHoldsNoSpeech) {
    EXPECT_FALSE(speech(joined({silence(rate, 1), tone(rate, 0.1, -10), silence(rate, 1)})));
}
