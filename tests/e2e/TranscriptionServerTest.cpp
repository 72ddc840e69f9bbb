// Dictation with a transcription server: a stand-in server on 127.0.0.1 takes the posted
// recording apart with the program's own WAV reader, recognizes which LibriVox sentence it holds
// by its loudness contour, and answers with that sentence's reference text, or answers with
// whatever hostile reply the test chose.
#include "MurmurlyDesktop.h"

#include "MultipartForm.h"
#include "SpeechCorpus.h"
#include "StandInHttpServer.h"
#include "WaitUntil.h"
#include "app/MenuContent.h"
#include "core/AppController.h"
#include "platform/linux/LibsecretStore.h"
#include "speech/TranscriptionSettings.h"
#include "speech/WavFile.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <cmath>

using namespace murmurly;
using namespace murmurly::testing;
using namespace std::chrono_literals;
using Response = StandInHttpServer::Response;

namespace {

const QByteArray apiKey = "sk-e2e-transcribe-5521";
const char* const sentenceId = "sense_and_sensibility_01_austen_64kb-0870";

// Log energy of each 10 ms frame.
std::vector<double> contour(const std::int16_t* samples, std::size_t count, int sampleRate) {
    const std::size_t frame = std::size_t(sampleRate / 100);
    std::vector<double> out;
    for (std::size_t at = 0; at + frame <= count; at += frame) {
        double energy = 0;
        for (std::size_t i = at; i < at + frame; ++i)
            energy += double(samples[i]) * samples[i];
        out.push_back(std::log10(1.0 + energy / double(frame)));
    }
    return out;
}

// The best correlation of `reference` with an equally long stretch of `heard`.
double bestMatch(const std::vector<double>& heard, const std::vector<double>& reference) {
    if (reference.empty() || heard.size() < reference.size()) return 0;
    const std::size_t n = reference.size();
    double refMean = 0;
    for (double v : reference)
        refMean += v;
    refMean /= double(n);
    double best = 0;
    for (std::size_t lag = 0; lag + n <= heard.size(); ++lag) {
        double mean = 0;
        for (std::size_t i = 0; i < n; ++i)
            mean += heard[lag + i];
        mean /= double(n);
        double cross = 0, a = 0, b = 0;
        for (std::size_t i = 0; i < n; ++i) {
            const double x = heard[lag + i] - mean, y = reference[i] - refMean;
            cross += x * y;
            a += x * x;
            b += y * y;
        }
        if (a > 0 && b > 0) best = std::max(best, cross / std::sqrt(a * b));
    }
    return best;
}

// "and mister john" → "And mister john."
QString asSentence(const QString& reference) {
    QString text = reference;
    if (!text.isEmpty()) text[0] = text[0].toUpper();
    return text + QLatin1Char('.');
}

class TranscriptionServerTest : public MurmurlyDesktopTest {
protected:
    TranscriptionServerTest()
        : MurmurlyDesktopTest(SessionBus::withKeyring) {}

    void SetUp() override {
        MurmurlyDesktopTest::SetUp();
        if (HasFatalFailure()) return;
        ASSERT_TRUE(server.start());
        LibsecretStore keys;
        ASSERT_TRUE(keys.isAvailable());
        ASSERT_TRUE(
            keys.add(QStringLiteral("com.qv.murmurly"), TranscriptionSettings::apiKeyAccount, apiKey));
        setPreference(TranscriptionSettings::speechEngineKey, QStringLiteral("server"));
        setPreference(TranscriptionSettings::endpointURLKey, server.url(QStringLiteral("/inference")));
        for (const Utterance& utterance : libriVoxUtterances()) {
            const WavAudio audio = readWav(utterance.wavPath);
            if (audio.sampleRate != 16000) continue;
            references.append({utterance, contour(audio.samples.data(), audio.samples.size(), 16000)});
        }
        ASSERT_FALSE(references.isEmpty());
    }

    // A whisper-like server that knows the LibriVox sentences.
    Response recognize(const StandInHttpServer::Request& request) {
        const std::optional<QByteArray> boundary = MultipartForm::boundaryOf(request.header("Content-Type"));
        const std::optional<MultipartForm> form =
            boundary ? MultipartForm::parse(request.body, *boundary) : std::nullopt;
        Response response;
        if (!form || !form->part("file")) {
            response.status = 400;
            response.body = R"({"error":"no file"})";
            return response;
        }
        QString error;
        const std::optional<WavFile> wav = WavFile::parse(form->part("file")->data, error);
        if (!wav || wav->format() != AudioFormat::int16(16000, 1)) {
            response.status = 400;
            response.body = R"({"error":"not 16 kHz mono 16-bit"})";
            return response;
        }
        const std::vector<double> heard =
            contour(wav->audio().int16Samples(), std::size_t(wav->frameCount()), 16000);
        QString text;
        double best = 0;
        for (const auto& [utterance, reference] : references) {
            const double match = bestMatch(heard, reference);
            if (match > best) {
                best = match;
                if (match >= 0.8) text = asSentence(utterance.reference);
            }
        }
        bestScore = best;
        response.body =
            QJsonDocument(QJsonObject{{QStringLiteral("text"), text}}).toJson(QJsonDocument::Compact);
        return response;
    }

    QString loggedTranscript() const {
        const QRegularExpression line(QStringLiteral("Transcript: ([^\\n]*)"));
        return line.match(program->log()).captured(1).trimmed();
    }

    QString referenceText() const {
        for (const auto& [utterance, reference] : references)
            if (utterance.id == QLatin1String(sentenceId)) return asSentence(utterance.reference);
        return {};
    }

    StandInHttpServer server;
    QList<std::pair<Utterance, std::vector<double>>> references;
    double bestScore = 0;
};

} // namespace

TEST_F(TranscriptionServerTest, SentenceHeldWithRightAltInsertsTheServersTextExactly) {
    server.setResponder([this](const StandInHttpServer::Request& request) { return recognize(request); });
    startProgram();
    dictateHolding(sentence(sentenceId));
    const QString text = waitForInsertedText();
    ASSERT_FALSE(text.isEmpty()) << program->log().toStdString();
    EXPECT_TRUE(waitForState(QStringLiteral("idle")));
    ASSERT_FALSE(referenceText().isEmpty());
    EXPECT_EQ(text, referenceText() + QLatin1Char(' ')) << "best match " << bestScore;

    ASSERT_EQ(server.requests().size(), 1);
    const StandInHttpServer::Request& request = server.requests().constFirst();
    EXPECT_EQ(request.method, QByteArray("POST"));
    EXPECT_EQ(request.path, QByteArray("/inference"));
    EXPECT_EQ(request.header("Authorization"), QByteArray("Bearer ") + apiKey);
    EXPECT_FALSE(request.body.contains(apiKey));
    EXPECT_EQ(property(QStringLiteral("LastError")), QString());
    EXPECT_FALSE(program->log().contains(QString::fromLatin1(apiKey)));
}

TEST_F(TranscriptionServerTest, SilentRecordingSendsNothingAndInsertsNothing) {
    server.setResponder([this](const StandInHttpServer::Request& request) { return recognize(request); });
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString quiet = dir.filePath(QStringLiteral("quiet.wav"));
    ASSERT_TRUE(writeWav(quiet, std::vector<std::int16_t>(16000 * 2, 0), 16000));
    startProgram();
    dictateHolding(quiet);
    ASSERT_TRUE(
        waitUntil([&] { return program->log().contains(QStringLiteral("No speech in the recording")); }, 20s))
        << program->log().toStdString();
    EXPECT_TRUE(waitForState(QStringLiteral("idle")));
    keepRunning(1s);
    EXPECT_TRUE(server.requests().isEmpty());
    EXPECT_EQ(window.text(), QString());
    EXPECT_EQ(property(QStringLiteral("LastError")), QString());
}

// One hostile reply, named in test names and messages.
struct HostileReply {
    const char* name;
    Response response;
};

void PrintTo(const HostileReply& reply, std::ostream* out) {
    *out << reply.name;
}

// Every hostile reply: the on-device transcript is inserted, and the menu says so.
class HostileTranscriptionServerTest : public TranscriptionServerTest,
                                       public ::testing::WithParamInterface<HostileReply> {};

TEST_P(HostileTranscriptionServerTest, InsertsTheOnDeviceTranscriptWithTheErrorLine) {
    StandInHttpServer elsewhere;
    ASSERT_TRUE(elsewhere.start());
    elsewhere.setJsonResponse(200, R"({"text":"And mister john dashwood."})");
    Response response = GetParam().response;
    for (auto& [name, value] : response.headers)
        if (name == "Location") value = elsewhere.url(QStringLiteral("/inference")).toUtf8();
    server.setResponse(response);
    startProgram();
    dictateHolding(sentence(sentenceId));
    const QString text = waitForInsertedText();
    ASSERT_FALSE(text.isEmpty()) << program->log().toStdString();
    EXPECT_TRUE(waitForState(QStringLiteral("idle")));
    EXPECT_EQ(server.requests().size(), 1);
    const QString transcript = loggedTranscript();
    ASSERT_FALSE(transcript.isEmpty()) << program->log().toStdString();
    EXPECT_EQ(text, transcript + QLatin1Char(' '));
    EXPECT_NE(text, referenceText() + QLatin1Char(' '));
    const std::optional<QString> lastError = property(QStringLiteral("LastError"));
    EXPECT_EQ(lastError, AppController::serverFallbackError) << program->log().toStdString();
    EXPECT_EQ(MenuContent::errorLine(lastError.value_or(QString())),
              QStringLiteral("\u26A0\uFE0E ") + AppController::serverFallbackError);
    EXPECT_TRUE(elsewhere.requests().isEmpty());
}

namespace {

Response hostile(int status, QByteArray body) {
    Response r;
    r.status = status;
    r.body = std::move(body);
    return r;
}

std::vector<HostileReply> hostileReplies() {
    std::vector<HostileReply> cases;
    Response stall;
    stall.stall = true;
    cases.push_back(HostileReply{"Stall", stall});
    Response drip = hostile(200, R"({"text":"And mister john dashwood."})");
    drip.dripIntervalMilliseconds = 1000;
    cases.push_back(HostileReply{"SlowDrip", drip});
    Response huge = hostile(200, R"({"text":")");
    huge.bodySize = 50LL * 1024 * 1024;
    cases.push_back(HostileReply{"FiftyMiBBody", huge});
    Response reset =
        hostile(200, QByteArray(R"({"text":"And mister john dashwood."})") + QByteArray(4000, ' '));
    reset.resetAfterBodyBytes = 12;
    cases.push_back(HostileReply{"ResetMidBody", reset});
    cases.push_back(HostileReply{"Status401", hostile(401, R"({"error":"unauthorized"})")});
    cases.push_back(HostileReply{"Status429", hostile(429, R"({"error":"slow down"})")});
    cases.push_back(HostileReply{"Status500", hostile(500, R"({"error":"internal"})")});
    Response html = hostile(200, "<html>It works!</html>");
    html.contentType = "text/html";
    cases.push_back(HostileReply{"NotJson", html});
    cases.push_back(HostileReply{"TextOfAWrongType", hostile(200, R"({"text":17})")});
    cases.push_back(
        HostileReply{"InvalidUtf8", hostile(200, QByteArray("{\"text\":\"And mis\xC3\x28ter\"}"))});
    Response redirect = hostile(307, {});
    // Pointed at a second server on another port by the test.
    redirect.headers = {{"Location", {}}};
    cases.push_back(HostileReply{"RedirectToAnotherPort", redirect});
    return cases;
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Replies, HostileTranscriptionServerTest, ::testing::ValuesIn(hostileReplies()),
                         [](const ::testing::TestParamInfo<HostileReply>& info) {
                             return std::string(info.param.name);
                         });
