#include "ControllerHarness.h"
#include "LogCapture.h"
#include "MultipartForm.h"
#include "RunTask.h"
#include "StandInHttpServer.h"
#include "TestSignals.h"
#include "WaitUntil.h"

#include "cleanup/KeychainStore.h"
#include "core/Log.h"
#include "speech/HttpTranscriptionServer.h"
#include "speech/TranscriptionEngine.h"
#include "speech/TranscriptionSettings.h"
#include "speech/WavFile.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

using namespace murmurly;
using namespace std::chrono_literals;
using murmurly::testing::ControllerHarness;
using murmurly::testing::LogCapture;
using murmurly::testing::MultipartForm;
using murmurly::testing::runBounded;
using murmurly::testing::StandInHttpServer;
using murmurly::testing::waitUntil;
using Response = StandInHttpServer::Response;

namespace {

const QString apiKey = QStringLiteral("sk-transcribe-KEY-81c2d");
const QByteArray serverReply = R"({"text":" And Mister John Dashwood had then leisure to consider. "})";
const QString serverText = QStringLiteral("And Mister John Dashwood had then leisure to consider.");

QByteArray spokenWav() {
    using namespace murmurly::testing;
    const std::vector<std::int16_t> samples =
        joined({silence(16000, 0.2), tone(16000, 0.8, -24, 300), silence(16000, 0.2)});
    return WavFile::encodeInt16(samples.data(), std::int64_t(samples.size()), 16000, 1);
}

Response status(int code, QByteArray body = R"({"error":{"message":"no"}})") {
    Response r;
    r.status = code;
    r.body = std::move(body);
    return r;
}

// Every hostile or broken answer a transcription server might give; each must end in no text.
struct HostileCase {
    const char* name;
    Response response;
    // Whether the case is ended only by the exchange's time bound.
    bool endsByTime = false;
};

std::vector<HostileCase> hostileCases() {
    std::vector<HostileCase> cases;
    Response stall;
    stall.stall = true;
    cases.push_back({"stall", stall, true});
    Response drip = status(200, serverReply);
    drip.dripIntervalMilliseconds = 1000;
    cases.push_back({"slow drip", drip, true});
    Response huge = status(200, R"({"text":")");
    huge.bodySize = 50LL * 1024 * 1024;
    cases.push_back({"50 MiB body", huge});
    Response reset = status(200, serverReply + QByteArray(4000, ' '));
    reset.resetAfterBodyBytes = 20;
    cases.push_back({"reset mid-body", reset});
    Response cutShort = status(200, serverReply + QByteArray(4000, ' '));
    cutShort.closeAfterBodyBytes = serverReply.size();
    cases.push_back({"closed short of the announced length", cutShort});
    cases.push_back({"401", status(401)});
    cases.push_back({"429", status(429)});
    cases.push_back({"500", status(500)});
    Response hugeError = status(500, R"({"error":")");
    hugeError.bodySize = 50LL * 1024 * 1024;
    cases.push_back({"500 with a 50 MiB body", hugeError});
    Response html = status(200, "<html><body>It works!</body></html>");
    html.contentType = "text/html";
    cases.push_back({"not JSON", html});
    cases.push_back({"text of a wrong type", status(200, R"({"text":["And","Mister"]})")});
    cases.push_back({"invalid UTF-8", status(200, QByteArray("{\"text\":\"And Mis\xC3\x28ter\"}"))});
    return cases;
}

} // namespace

// ---- the HTTP client ----

class HttpTranscriptionServerTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(server.start()); }

    ServerTranscript ask(const QString& key, std::chrono::milliseconds limit = 8s,
                         const QString& path = QStringLiteral("/inference")) {
        HttpTranscriptionServer client(network, server.url(path), QStringLiteral("whisper-1"), key);
        auto outcome = runBounded(client.transcribe(spokenWav(), QStringLiteral("en-US"), limit), 60s);
        EXPECT_TRUE(outcome.finished) << "the request did not end";
        return outcome.value.value_or(ServerTranscript::failure(QStringLiteral("did not end")));
    }

    QNetworkAccessManager network;
    StandInHttpServer server;
};

TEST_F(HttpTranscriptionServerTest, PostsOneMultipartFormToTheEndpointAndReadsItsText) {
    server.setJsonResponse(200, serverReply);
    const ServerTranscript answer = ask(apiKey);
    ASSERT_TRUE(answer.text) << answer.error.toStdString();
    EXPECT_EQ(*answer.text, serverText);

    ASSERT_EQ(server.requests().size(), 1);
    const StandInHttpServer::Request& request = server.requests()[0];
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.path, "/inference");
    const std::optional<QByteArray> boundary = MultipartForm::boundaryOf(request.header("Content-Type"));
    ASSERT_TRUE(boundary) << request.header("Content-Type").toStdString();
    const std::optional<MultipartForm> form = MultipartForm::parse(request.body, *boundary);
    ASSERT_TRUE(form);
    EXPECT_EQ(form->names(),
              (QList<QByteArray>{"file", "model", "language", "response_format", "temperature"}));
    EXPECT_EQ(form->part("file")->data, spokenWav());
    EXPECT_EQ(form->part("model")->data, "whisper-1");
    EXPECT_EQ(form->part("language")->data, "en");
    EXPECT_EQ(form->part("response_format")->data, "json");
    EXPECT_EQ(form->part("temperature")->data, "0");
}

TEST_F(HttpTranscriptionServerTest, KeyIsSentOnlyAsTheBearerToken) {
    server.setJsonResponse(200, serverReply);
    LogCapture log(true);
    ask(apiKey);
    ASSERT_EQ(server.requests().size(), 1);
    const StandInHttpServer::Request& request = server.requests()[0];
    EXPECT_EQ(request.header("Authorization"), "Bearer " + apiKey.toUtf8());
    int carriers = 0;
    for (const auto& [name, value] : request.headers)
        if (value.contains(apiKey.toUtf8())) ++carriers;
    EXPECT_EQ(carriers, 1);
    EXPECT_FALSE(request.body.contains(apiKey.toUtf8()));
    EXPECT_FALSE(request.path.contains(apiKey.toUtf8()));
    EXPECT_FALSE(log.allText().contains(apiKey));
}

TEST_F(HttpTranscriptionServerTest, WithoutAKeyNoAuthorizationIsSent) {
    server.setJsonResponse(200, serverReply);
    ask(QString());
    ASSERT_EQ(server.requests().size(), 1);
    EXPECT_FALSE(server.requests()[0].headerNames().contains("Authorization"));
}

TEST_F(HttpTranscriptionServerTest, EveryHostileReplyEndsWithinTheBoundWithoutText) {
    for (const HostileCase& hostile : hostileCases()) {
        SCOPED_TRACE(hostile.name);
        server.setResponse(hostile.response);
        const ServerTranscript answer = ask(apiKey, hostile.endsByTime ? 2s : 8s);
        EXPECT_FALSE(answer.text);
        EXPECT_FALSE(answer.error.isEmpty());
    }
}

// Which of two events comes first, the network thread's own error for the status or the end of
// the exchange, varies from run to run; neither order may put a line in the log.
TEST_F(HttpTranscriptionServerTest, ErrorStatusesEndTheExchangeWithoutALogLine) {
    for (int round = 0; round < 20; ++round) {
        for (int code : {401, 500}) {
            SCOPED_TRACE(code);
            server.setResponse(status(code));
            LogCapture log;
            const ServerTranscript answer = ask(apiKey);
            EXPECT_EQ(answer.error, QStringLiteral("The server answered with status %1.").arg(code));
            murmurly::testing::keepRunning(
                std::chrono::milliseconds(50)); // what the network thread still had to say
            EXPECT_EQ(log.lines().size(), 0) << log.allText().toStdString();
        }
    }
}

TEST_F(HttpTranscriptionServerTest, RedirectToAnotherPortIsNotFollowed) {
    StandInHttpServer elsewhere;
    ASSERT_TRUE(elsewhere.start());
    elsewhere.setJsonResponse(200, serverReply);
    Response redirect = status(302, {});
    redirect.headers = {{"Location", elsewhere.url(QStringLiteral("/inference")).toUtf8()}};
    server.setResponse(redirect);
    const ServerTranscript answer = ask(apiKey);
    EXPECT_FALSE(answer.text);
    EXPECT_TRUE(answer.error.contains(QStringLiteral("redirect"))) << answer.error.toStdString();
    EXPECT_TRUE(elsewhere.requests().isEmpty());
}

TEST_F(HttpTranscriptionServerTest, AnEndpointThatIsNotAnHttpUrlIsRefusedWithoutSending) {
    for (const QString& endpoint :
         {QString(), QStringLiteral("127.0.0.1:8080/inference"), QStringLiteral("ftp://127.0.0.1/x")}) {
        HttpTranscriptionServer client(network, endpoint, QString(), apiKey);
        auto outcome = runBounded(client.transcribe(spokenWav(), QStringLiteral("en-US"), 8s), 30s);
        ASSERT_TRUE(outcome.finished);
        EXPECT_FALSE(outcome.value->text) << endpoint.toStdString();
    }
    EXPECT_TRUE(server.requests().isEmpty());
}

TEST(TranscriptionSettingsTest, OnlyLoopbackEndpointsCountAsThisComputer) {
    EXPECT_TRUE(TranscriptionSettings::isOnThisComputer(QStringLiteral("http://127.0.0.1:8080/inference")));
    EXPECT_TRUE(TranscriptionSettings::isOnThisComputer(
        QStringLiteral("http://localhost:8000/v1/audio/transcriptions")));
    EXPECT_TRUE(TranscriptionSettings::isOnThisComputer(QStringLiteral("http://[::1]:8080/inference")));
    EXPECT_FALSE(TranscriptionSettings::isOnThisComputer(
        QStringLiteral("https://api.openai.com/v1/audio/transcriptions")));
    EXPECT_FALSE(
        TranscriptionSettings::isOnThisComputer(QStringLiteral("http://192.168.1.20:8080/inference")));
    EXPECT_FALSE(
        TranscriptionSettings::isOnThisComputer(QStringLiteral("http://127.0.0.1.example.com/inference")));
}

// ---- the dictation controller with a server ----

class ControllerWithServerTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server.start());
        server.setJsonResponse(200, serverReply);
        h.pasteKeys.onPaste = [this] { pasted << h.clipboard.text(); };
        h.speech.script.finalResults = {{QStringLiteral("and mister john dashwood had then leisure"), true}};
        h.defaults.setString(TranscriptionSettings::speechEngineKey, QStringLiteral("server"));
        h.defaults.setString(TranscriptionSettings::endpointURLKey, server.url(QStringLiteral("/inference")));
        h.controller().keychain().set(apiKey, TranscriptionSettings::apiKeyAccount);
    }
    void TearDown() override {
        // Whatever request is still out ends by its own bound; nothing is left suspended.
        EXPECT_TRUE(allConnectionsEnd());
        h.advance(2s);
    }

    // One held dictation whose microphone hears `signal` (float stereo at 48 kHz, as a device
    // delivers it). Returns what the recognizer was fed, converted.
    std::vector<std::int16_t> dictate(const std::function<float(std::int64_t)>& signal,
                                      double seconds = 1.5) {
        AppController& c = h.controller();
        c.pttPressed();
        h.settle();
        const std::shared_ptr<AnalyzerInputStream> input = h.session() ? h.session()->input() : nullptr;
        EXPECT_TRUE(input);
        const std::int64_t frames = std::int64_t(48000 * seconds);
        for (std::int64_t at = 0; at < frames; at += 4096) {
            const std::int64_t n = std::min<std::int64_t>(4096, frames - at);
            std::optional<AudioBuffer> buffer = AudioBuffer::allocate(AudioFormat::float32(48000, 2), n);
            for (std::int64_t i = 0; i < n; ++i)
                buffer->floatSamples()[2 * i] = buffer->floatSamples()[2 * i + 1] = signal(at + i);
            buffer->setFrameLength(n);
            h.microphone->deliver(*buffer);
        }
        h.advance(std::chrono::milliseconds(std::int64_t(seconds * 1000)));
        c.pttReleased();
        h.settle();
        std::vector<std::int16_t> fed;
        if (input) {
            // Taken now: what the recognizer got is exactly what was queued for it.
            while (std::optional<AnalyzerInput> next = input->tryNext())
                fed.insert(fed.end(), next->buffer.int16Samples(),
                           next->buffer.int16Samples() + next->buffer.frameLength());
        }
        return fed;
    }

    static float speechLike(std::int64_t i) {
        // Half a second of quiet, then a warbling tone: enough voiced time to count as speech.
        if (i < 24000) return 0.0f;
        const double t = double(i) / 48000.0;
        return float(
            0.2 * std::sin(2 * std::numbers::pi * (300 + 80 * std::sin(2 * std::numbers::pi * 3 * t)) * t));
    }

    // Every connection the program opened has ended. Counted by connection, not by request: after
    // a reset, Qt may open one more connection that never carries a request before giving it up.
    ::testing::AssertionResult allConnectionsEnd() {
        if (waitUntil([&] { return server.closedConnections() == server.acceptedConnections(); }, 30s))
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure()
               << server.closedConnections() << " of " << server.acceptedConnections()
               << " connections ended, for " << server.requests().size() << " requests";
    }

    bool waitForInsertion() {
        const bool inserted = waitUntil([&] { return !pasted.isEmpty(); }, 30s);
        h.advance(1s);
        return inserted;
    }

    ControllerHarness h;
    StandInHttpServer server;
    QStringList pasted;
};

TEST_F(ControllerWithServerTest, ServerTextIsInsertedExactly) {
    dictate(speechLike);
    ASSERT_TRUE(waitForInsertion());
    EXPECT_EQ(pasted, QStringList{serverText + QLatin1Char(' ')});
    EXPECT_FALSE(h.controller().lastError());
}

TEST_F(ControllerWithServerTest, PostedWavDecodesToExactlyTheSamplesTheRecognizerWasFed) {
    const std::vector<std::int16_t> fed = dictate(speechLike);
    ASSERT_TRUE(waitForInsertion());
    ASSERT_EQ(server.requests().size(), 1);
    const StandInHttpServer::Request& request = server.requests()[0];
    const std::optional<MultipartForm> form = MultipartForm::parse(
        request.body, MultipartForm::boundaryOf(request.header("Content-Type")).value_or(""));
    ASSERT_TRUE(form);
    QString error;
    const std::optional<WavFile> wav = WavFile::parse(form->part("file")->data, error);
    ASSERT_TRUE(wav) << error.toStdString();
    EXPECT_EQ(wav->format(), AudioFormat::int16(16000, 1));
    ASSERT_FALSE(fed.empty());
    ASSERT_EQ(wav->frameCount(), std::int64_t(fed.size()));
    EXPECT_TRUE(std::equal(fed.begin(), fed.end(), wav->audio().int16Samples()));
    EXPECT_EQ(request.header("Authorization"), "Bearer " + apiKey.toUtf8());
    EXPECT_EQ(form->part("language")->data, "en");
    EXPECT_EQ(form->names(), (QList<QByteArray>{"file", "language", "response_format", "temperature"}))
        << "no model is set, so none is sent";
}

TEST_F(ControllerWithServerTest, EveryHostileReplyInsertsTheOnDeviceTranscriptWithTheErrorLine) {
    for (const HostileCase& hostile : hostileCases()) {
        SCOPED_TRACE(hostile.name);
        pasted.clear();
        server.setResponse(hostile.response);
        const qsizetype before = server.requests().size();
        dictate(speechLike);
        ASSERT_TRUE(waitUntil([&] { return server.requests().size() == before + 1; }, 30s));
        // A server that does not finish is given up when the finalisation limit passes.
        if (hostile.endsByTime) h.advance(TranscriptionEngine::finalizeLimit + 1s);
        ASSERT_TRUE(waitForInsertion());
        EXPECT_EQ(pasted, QStringList{QStringLiteral("and mister john dashwood had then leisure ")});
        EXPECT_EQ(h.controller().lastErrorText(), AppController::serverFallbackError);
        EXPECT_EQ(h.controller().state(), DictationState::idle);
        // The abandoned request ends by its own bound before the next case.
        ASSERT_TRUE(allConnectionsEnd());
    }
}

TEST_F(ControllerWithServerTest, RedirectToAnotherPortInsertsTheOnDeviceTranscript) {
    StandInHttpServer elsewhere;
    ASSERT_TRUE(elsewhere.start());
    elsewhere.setJsonResponse(200, serverReply);
    Response redirect = status(307, {});
    redirect.headers = {{"Location", elsewhere.url(QStringLiteral("/inference")).toUtf8()}};
    server.setResponse(redirect);
    dictate(speechLike);
    ASSERT_TRUE(waitForInsertion());
    EXPECT_EQ(pasted, QStringList{QStringLiteral("and mister john dashwood had then leisure ")});
    EXPECT_EQ(h.controller().lastErrorText(), AppController::serverFallbackError);
    EXPECT_TRUE(elsewhere.requests().isEmpty());
}

TEST_F(ControllerWithServerTest, SilentRecordingSendsNothingAndInsertsNothing) {
    h.speech.script.finalResults.clear();
    dictate([](std::int64_t) { return 0.0f; });
    h.advance(TranscriptionEngine::finalizeLimit + 1s);
    EXPECT_TRUE(server.requests().isEmpty());
    EXPECT_TRUE(pasted.isEmpty());
    EXPECT_FALSE(h.controller().lastError());
    EXPECT_EQ(h.controller().state(), DictationState::idle);
}

// The keyring may sit behind an unlock prompt: a dictation reads the server's key only with a
// bounded read, never with one that could hold the main thread.
TEST_F(ControllerWithServerTest, TheKeyIsReadOnlyWithABoundedRead) {
    h.secrets.unboundedReads = 0;
    h.secrets.boundedReads = 0;
    dictate(speechLike);
    ASSERT_TRUE(waitForInsertion());
    EXPECT_EQ(h.secrets.unboundedReads, 0);
    EXPECT_EQ(h.secrets.boundedReads, 1);
    ASSERT_EQ(server.requests().size(), 1);
    EXPECT_EQ(server.requests()[0].header("Authorization"), "Bearer " + apiKey.toUtf8());
}

TEST_F(ControllerWithServerTest, OnDeviceEngineNeverAsksTheServer) {
    h.controller().transcriptionSettings().setEngine(SpeechEngineKind::onDevice);
    dictate(speechLike);
    ASSERT_TRUE(waitForInsertion());
    EXPECT_EQ(pasted, QStringList{QStringLiteral("and mister john dashwood had then leisure ")});
    EXPECT_TRUE(server.requests().isEmpty());
}

TEST_F(ControllerWithServerTest, TranscriptIsNeverLogged) {
    LogCapture log(true);
    server.setResponse(status(500));
    dictate(speechLike);
    ASSERT_TRUE(waitForInsertion());
    EXPECT_FALSE(log.allText().contains(QStringLiteral("dashwood"), Qt::CaseInsensitive));
    EXPECT_FALSE(log.allText().contains(apiKey));
}
