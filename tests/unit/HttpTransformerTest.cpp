#include "ClosedTcpPort.h"
#include "FakeLocalLanguageModel.h"
#include "LogCapture.h"
#include "MemoryDefaults.h"
#include "MemorySecretStore.h"
#include "RunTask.h"
#include "StandInHttpServer.h"
#include "WaitUntil.h"
#include "cleanup/AnthropicTransformer.h"
#include "cleanup/CleanupPrompt.h"
#include "cleanup/CleanupSettings.h"
#include "cleanup/HttpExchange.h"
#include "cleanup/KeychainStore.h"
#include "cleanup/OpenAICompatibleTransformer.h"
#include "core/JsonFields.h"
#include "core/Log.h"

#include <QCoreApplication>
#include <QFile>
#include <QHostAddress>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QSslCertificate>
#include <QSslKey>
#include <QSslServer>
#include <QSslSocket>
#include <QTimer>

#include <gtest/gtest.h>

#include <memory>

using namespace murmurly;
using namespace std::chrono_literals;
using murmurly::testing::LogCapture;
using murmurly::testing::MemoryDefaults;
using murmurly::testing::MemorySecretStore;
using murmurly::testing::runBounded;
using murmurly::testing::StandInHttpServer;
using Response = StandInHttpServer::Response;

namespace {

const QString apiKey = QStringLiteral("sk-test-KEY-4f9a1c");
const QString transcript = QStringLiteral("um so the meeting is uh moved to friday");
const QString prompt = QStringLiteral("Clean this up.");

QByteArray anthropicReply(const QByteArray& textBlockJson, const QByteArray& extra = {}) {
    return R"({"id":"msg_1","type":"message","role":"assistant","content":[{"type":"text","text":)" +
           textBlockJson + "}]" + extra + "}";
}

QByteArray chatReply(const QByteArray& contentJson, const QByteArray& extra = {}) {
    return R"({"id":"chatcmpl-1","object":"chat.completion","choices":[{"index":0,"message":{"role":"assistant",)"
           R"("content":)" +
           contentJson + R"(},"finish_reason":"stop"}])" + extra + "}";
}

// Long enough that no answer of the stand-in, however busy the machine, is overtaken by it: only
// the cases about time limits use a short one.
constexpr std::chrono::milliseconds unhurried = 30s;

// Every hostile or broken answer a provider might give, each of which must end in no result.
struct HostileCase {
    const char* name;
    Response response;
    // The one log line expected after the provider's prefix ("… request failed: " or "… error "),
    // or empty when the failure is silent.
    const char* expectedLog;
    std::chrono::milliseconds timeout = unhurried;
};

// Hands every request to the real transport, sent to `target` when that is set, and keeps the
// request as the transformer made it and the reply the transport returned.
class RecordingNetwork : public QNetworkAccessManager {
public:
    QUrl target;
    QList<QNetworkRequest> requests;
    QList<QPointer<QNetworkReply>> replies;

protected:
    QNetworkReply* createRequest(Operation operation, const QNetworkRequest& request,
                                 QIODevice* outgoing) override {
        requests.append(request);
        QNetworkRequest sent = request;
        if (!target.isEmpty()) sent.setUrl(target);
        QNetworkReply* reply = QNetworkAccessManager::createRequest(operation, sent, outgoing);
        replies.append(reply);
        return reply;
    }
};

Response respond(int status, QByteArray body) {
    Response response;
    response.status = status;
    response.body = std::move(body);
    return response;
}

} // namespace

class HttpTransformerTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server.start());
        ASSERT_TRUE(elsewhere.start());
        elsewhere.setJsonResponse(200, "{}");
    }

    std::optional<TransformResult> run(TextTransformer& transformer, std::chrono::milliseconds limit = 10s) {
        auto outcome = runBounded(transformer.transform(transcript, prompt), limit);
        EXPECT_TRUE(outcome.finished) << "the transformer did not finish in time";
        return outcome.value ? *outcome.value : std::nullopt;
    }

    std::unique_ptr<AnthropicTransformer> anthropic(std::chrono::milliseconds timeout = 5s) {
        return std::make_unique<AnthropicTransformer>(network, apiKey, QStringLiteral("claude-haiku-4-5"),
                                                      QUrl(server.url(QStringLiteral("/v1/messages"))),
                                                      timeout);
    }

    std::unique_ptr<OpenAICompatibleTransformer> openAI(std::chrono::milliseconds timeout = 5s) {
        return std::make_unique<OpenAICompatibleTransformer>(network, apiKey, QStringLiteral("gpt-4o-mini"),
                                                             server.url(QStringLiteral("/v1")), timeout);
    }

    std::vector<HostileCase> hostileCases(const QByteArray& validReply) const {
        Response stall;
        stall.stall = true;
        Response resetMidBody = respond(200, validReply);
        resetMidBody.resetAfterBodyBytes = validReply.size() / 2;
        // The whole valid reply arrives, but the connection ends before the length announced.
        Response closedShort = respond(200, validReply + QByteArray(4000, ' '));
        closedShort.closeAfterBodyBytes = validReply.size();
        Response huge = respond(200, R"({"cleaned_text":")");
        huge.bodySize = 50 * 1024 * 1024;
        // Each redirect points at another server, which must never see the request (or the key).
        const auto redirect = [&](int status) {
            Response response = respond(status, validReply);
            response.headers.append({"Location", elsewhere.url(QStringLiteral("/v1/messages")).toUtf8()});
            return response;
        };
        // A body that keeps coming, one byte at a time, for far longer than any limit.
        Response dripAfter500 = respond(500, R"({"error":"overloaded"})");
        dripAfter500.bodySize = 100000;
        dripAfter500.dripIntervalMilliseconds = 50;
        Response hugeAfter500 = respond(500, R"({"error":")");
        hugeAfter500.bodySize = 50 * 1024 * 1024;
        return {
            {"non-JSON", respond(200, "<html><body>Bad gateway</body></html>"), "request failed: "},
            {"truncated JSON", respond(200, validReply.left(validReply.size() - 3)), "request failed: "},
            {"bare string", respond(200, R"("hello")"), "request failed: "},
            {"invalid UTF-8", respond(200, "{\"cleaned_text\":\"caf\xc3\x28\"}"), "request failed: "},
            {"nested 4 MiB deep", respond(200, QByteArray(4 * 1024 * 1024, '[')),
             "request failed: The reply nests arrays or objects more than 64 deep."},
            {"array at top level", respond(200, "[" + validReply + "]"), ""},
            {"empty object", respond(200, "{}"), ""},
            {"stall past the timeout", stall, "request failed: The request timed out.", 400ms},
            {"reset mid-body", resetMidBody, "request failed: "},
            {"closed short of the announced length", closedShort, "request failed: "},
            {"50 MiB body", huge, "request failed: The reply body is larger than 4194304 bytes."},
            {"status 201", respond(201, validReply), "error 201"},
            {"status 301", redirect(301), "error 301"},
            {"status 302", redirect(302), "error 302"},
            {"status 307", redirect(307), "error 307"},
            {"status 308", redirect(308), "error 308"},
            {"status 400", respond(400, R"({"error":"bad"})"), "error 400"},
            {"status 401", respond(401, R"({"error":"unauthorized"})"), "error 401"},
            {"status 429", respond(429, R"({"error":"slow down"})"), "error 429"},
            {"status 500", respond(500, "oops"), "error 500"},
            {"status 500, body dripping", dripAfter500, "error 500"},
            {"status 500, 50 MiB body", hugeAfter500, "error 500"},
            {"status 529", respond(529, R"({"error":"overloaded"})"), "error 529"},
        };
    }

    void expectEveryHostileReplyFails(
        const std::function<std::unique_ptr<TextTransformer>(std::chrono::milliseconds)>& make,
        const QByteArray& validReply, const QString& prefix,
        const std::vector<std::pair<const char*, QByteArray>>& wrongShapes) {
        std::vector<HostileCase> cases = hostileCases(validReply);
        for (const auto& [name, body] : wrongShapes)
            cases.push_back({name, respond(200, body), ""});
        for (const HostileCase& hostile : cases) {
            SCOPED_TRACE(hostile.name);
            server.setResponse(hostile.response);
            LogCapture log;
            auto transformer = make(hostile.timeout);
            // Every case ends by its own doing long before this: a status, the end of the body, a
            // limit. Only a transformer that never finishes reaches it.
            EXPECT_EQ(run(*transformer, 4 * unhurried), std::nullopt);
            const QStringList lines = log.appMessages();
            if (QByteArray(hostile.expectedLog).isEmpty()) {
                EXPECT_TRUE(lines.isEmpty()) << lines.join(QLatin1Char('\n')).toStdString();
            } else {
                ASSERT_EQ(lines.size(), 1) << lines.join(QLatin1Char('\n')).toStdString();
                const QString expected = prefix + QString::fromUtf8(hostile.expectedLog);
                if (expected.endsWith(QLatin1String(": ")))
                    EXPECT_TRUE(lines[0].startsWith(expected) && lines[0].size() > expected.size())
                        << lines[0].toStdString();
                else
                    EXPECT_EQ(lines[0], expected);
                EXPECT_EQ(log.lines().constLast().type, QtCriticalMsg);
            }
        }
        QCoreApplication::processEvents();
        EXPECT_TRUE(elsewhere.requests().isEmpty()) << "a redirect was followed";
    }

    // A 200 whose body comes one byte at a time, each well within the idle limit, for far longer
    // than the whole exchange may last: the exchange limit ends it.
    void expectADrippingReplyEndsAtTheExchangeLimit(
        const std::function<std::unique_ptr<TextTransformer>(std::chrono::milliseconds)>& make,
        const QByteArray& validReply, const QString& prefix) {
        Response drip = respond(200, validReply);
        drip.bodySize = 100000;
        drip.dripIntervalMilliseconds = 20;
        server.setResponse(drip);
        const std::chrono::milliseconds timeout = 2s;
        LogCapture log;
        auto transformer = make(timeout);
        EXPECT_EQ(run(*transformer, 4 * unhurried), std::nullopt);
        ASSERT_EQ(log.appMessages().size(), 1) << log.allText().toStdString();
        // Only a machine so loaded that a 20 ms drip stalls for the whole idle limit would end it
        // by that limit instead; either way the exchange is over, and it failed.
        const QStringList limits = {
            prefix + QStringLiteral("request failed: The request did not finish within 4000 ms."),
            prefix + QStringLiteral("request failed: The request timed out.")};
        EXPECT_TRUE(limits.contains(log.appMessages()[0])) << log.appMessages()[0].toStdString();
        EXPECT_EQ(HttpExchange::exchangeLimit(timeout), 4000ms);
    }

    // The transformer as the settings build it for a dictation, talking to a server that never
    // answers: the transport's two limits are the production ones, and the idle one ends it.
    void expectTheProductionLimitsAreInForce(CleanupProvider provider, std::chrono::milliseconds idleLimit,
                                             const QString& prefix) {
        MemoryDefaults defaults;
        MemorySecretStore secrets;
        KeychainStore keys(secrets);
        murmurly::testing::FakeLocalLanguageModel localModel;
        RecordingNetwork recording;
        CleanupSettings settings(defaults, keys, localModel, recording);
        settings.setProvider(provider);
        ASSERT_TRUE(keys.set(apiKey, *CleanupProviders::keychainAccount(provider)));
        if (provider == CleanupProvider::anthropic)
            recording.target = QUrl(server.url(QStringLiteral("/v1/messages"))); // instead of the real host
        else
            settings.setOpenAIBaseURL(server.url(QStringLiteral("/v1")));
        Response stall;
        stall.stall = true;
        server.setResponse(stall);

        std::unique_ptr<TextTransformer> transformer = settings.makeTransformer();
        ASSERT_TRUE(transformer);
        LogCapture log;
        auto outcome = std::make_shared<std::optional<std::optional<TransformResult>>>();
        auto task = [](std::unique_ptr<TextTransformer> t,
                       std::shared_ptr<std::optional<std::optional<TransformResult>>> out) -> QCoro::Task<> {
            out->emplace(co_await t->transform(transcript, prompt));
        }(std::move(transformer), outcome);
        ASSERT_TRUE(murmurly::testing::waitUntil([&] { return !server.requests().isEmpty(); }));
        ASSERT_EQ(recording.requests.size(), 1);
        if (provider == CleanupProvider::anthropic) {
            EXPECT_EQ(recording.requests[0].url(), AnthropicTransformer::endpoint());
        }
        ASSERT_TRUE(recording.replies[0]);
        auto* idle = recording.replies[0]->findChild<QTimer*>(QStringLiteral("idleLimit"));
        auto* whole = recording.replies[0]->findChild<QTimer*>(QStringLiteral("exchangeLimit"));
        ASSERT_TRUE(idle && whole);
        EXPECT_TRUE(idle->isActive());
        EXPECT_EQ(idle->intervalAsDuration(), idleLimit);
        EXPECT_TRUE(whole->isActive());
        EXPECT_EQ(whole->intervalAsDuration(), 2 * idleLimit);
        EXPECT_TRUE(outcome->has_value() == false); // still waiting for the server

        // Let the idle limit run out now instead of in many seconds: it is the one that ends it.
        idle->start(0);
        ASSERT_TRUE(murmurly::testing::waitUntil([&] { return outcome->has_value(); }));
        EXPECT_EQ(**outcome, std::nullopt);
        EXPECT_EQ(log.appMessages(),
                  QStringList{prefix + QStringLiteral("request failed: The request timed out.")});
    }

    StandInHttpServer elsewhere;
    QNetworkAccessManager network;
    StandInHttpServer server;
};

// ---- Anthropic -------------------------------------------------------------------------------

TEST_F(HttpTransformerTest, AnthropicGoesToTheFixedEndpointWith15SecondsIdleAnd30InAll) {
    EXPECT_EQ(AnthropicTransformer::endpoint().toString(),
              QStringLiteral("https://api.anthropic.com/v1/messages"));
    expectTheProductionLimitsAreInForce(CleanupProvider::anthropic, 15s,
                                        QStringLiteral("Anthropic cleanup "));
}

TEST_F(HttpTransformerTest, AnthropicRequestIsAPostWithTheThreeHeadersInOrder) {
    server.setJsonResponse(200, anthropicReply(R"("{\"cleaned_text\":\"Hi.\"}")"));
    auto transformer = anthropic();
    ASSERT_TRUE(run(*transformer));
    ASSERT_EQ(server.requests().size(), 1);
    const auto& request = server.requests()[0];
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.path, "/v1/messages");
    EXPECT_EQ(request.header("Content-Type"), "application/json");
    EXPECT_EQ(request.header("x-api-key"), apiKey.toUtf8());
    EXPECT_EQ(request.header("anthropic-version"), "2023-06-01");
    const QList<QByteArray> names = request.headerNames();
    const auto position = [&](const char* name) {
        for (qsizetype i = 0; i < names.size(); ++i)
            if (names[i].compare(name, Qt::CaseInsensitive) == 0) return i;
        return qsizetype(-1);
    };
    EXPECT_LT(position("Content-Type"), position("x-api-key"));
    EXPECT_LT(position("x-api-key"), position("anthropic-version"));
    EXPECT_EQ(request.header("Authorization"), QByteArray());
}

TEST_F(HttpTransformerTest, AnthropicRequestBodyMembersAreExactlyAsDescribed) {
    server.setJsonResponse(200, anthropicReply(R"("{\"cleaned_text\":\"Hi.\"}")"));
    auto transformer = anthropic();
    ASSERT_TRUE(run(*transformer));
    ASSERT_EQ(server.requests().size(), 1);
    const auto body = JsonFields::parse<nlohmann::ordered_json>(server.requests()[0].body);
    ASSERT_TRUE(body.is_object());
    EXPECT_EQ(body.size(), 5u);
    EXPECT_EQ(body.at("model"), "claude-haiku-4-5");
    EXPECT_EQ(body.at("max_tokens"), 4096);
    EXPECT_TRUE(body.at("max_tokens").is_number_integer());
    EXPECT_EQ(body.at("system"), prompt.toStdString());
    const auto expectedFormat = nlohmann::ordered_json::parse(
        R"({"format":{"type":"json_schema","schema":{"type":"object","properties":{"cleaned_text":{"type":"string"}},)"
        R"("required":["cleaned_text"],"additionalProperties":false}}})");
    EXPECT_EQ(body.at("output_config"), expectedFormat);
    EXPECT_EQ(body.at("messages"), nlohmann::ordered_json::parse(R"([{"role":"user","content":")" +
                                                                 transcript.toStdString() + R"("}])"));
    for (const char* absent : {"temperature", "stop_sequences", "tools", "stream"})
        EXPECT_FALSE(body.contains(absent));
}

TEST_F(HttpTransformerTest, AnthropicTextBlockWithUsageYieldsTextAnd310InputAnd12OutputTokens) {
    server.setJsonResponse(
        200, anthropicReply(R"("{\"cleaned_text\":\"The meeting is moved to Friday.\"}")",
                            R"(,"stop_reason":"end_turn","usage":{"input_tokens":310,"output_tokens":12})"));
    auto transformer = anthropic();
    LogCapture log;
    const auto result = run(*transformer);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->text, QStringLiteral("The meeting is moved to Friday."));
    EXPECT_EQ(result->usage, (TokenUsage{310, 12}));
    EXPECT_TRUE(log.appMessages().isEmpty());
}

TEST_F(HttpTransformerTest, AnthropicObjectSplitAcrossTwoTextBlocksIsJoined) {
    server.setJsonResponse(200, R"({"content":[{"type":"text","text":"{\"cleaned_text\":\"Split "},)"
                                R"({"type":"text","text":"text.\"}"}]})");
    auto transformer = anthropic();
    const auto result = run(*transformer);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->text, QStringLiteral("Split text."));
}

TEST_F(HttpTransformerTest, AnthropicBlockOfAnotherTypeBeforeTheTextBlockIsIgnored) {
    server.setJsonResponse(200, R"({"content":[{"type":"thinking","thinking":"hmm","text":"{\"bogus\":"},)"
                                R"({"type":"text","text":"{\"cleaned_text\":\"Kept.\"}"}]})");
    auto transformer = anthropic();
    const auto result = run(*transformer);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->text, QStringLiteral("Kept."));
}

TEST_F(HttpTransformerTest, AnthropicReplyWithoutUsageStillYieldsTheText) {
    server.setJsonResponse(200, anthropicReply(R"("{\"cleaned_text\":\"No usage.\"}")"));
    auto transformer = anthropic();
    const auto result = run(*transformer);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->text, QStringLiteral("No usage."));
    EXPECT_EQ(result->usage, std::nullopt);
}

TEST_F(HttpTransformerTest, AnthropicStatus201_400_401_429_529YieldAbsentAndOneErrorLogWithTheNumber) {
    for (const int status : {201, 400, 401, 429, 529}) {
        SCOPED_TRACE(status);
        server.setJsonResponse(status, anthropicReply(R"("{\"cleaned_text\":\"Hi.\"}")"));
        LogCapture log;
        auto transformer = anthropic();
        EXPECT_EQ(run(*transformer), std::nullopt);
        EXPECT_EQ(log.appMessages(), QStringList{QStringLiteral("Anthropic cleanup error %1").arg(status)});
        ASSERT_EQ(log.lines().size(), 1) << log.allText().toStdString();
        EXPECT_EQ(log.lines()[0].type, QtCriticalMsg);
    }
}

TEST_F(HttpTransformerTest, AnthropicRefusalYieldsAbsentEvenWithATextBlock) {
    server.setJsonResponse(200,
                           anthropicReply(R"("{\"cleaned_text\":\"Hi.\"}")", R"(,"stop_reason":"refusal")"));
    LogCapture log;
    auto transformer = anthropic();
    EXPECT_EQ(run(*transformer), std::nullopt);
    EXPECT_EQ(log.appMessages(),
              QStringList{QStringLiteral("Anthropic cleanup refused; falling back to raw")});
    ASSERT_EQ(log.lines().size(), 1) << log.allText().toStdString();
    EXPECT_EQ(log.lines()[0].type, QtInfoMsg);
}

TEST_F(HttpTransformerTest, AnthropicHostileRepliesYieldAbsentWithTheRightLog) {
    expectEveryHostileReplyFails(
        [this](std::chrono::milliseconds timeout) { return anthropic(timeout); },
        anthropicReply(R"("{\"cleaned_text\":\"Hi there.\"}")"), QStringLiteral("Anthropic cleanup "),
        {
            {"content not an array", R"({"content":"{\"cleaned_text\":\"x\"}"})"},
            {"content element not an object",
             R"({"content":[1,{"type":"text","text":"{\"cleaned_text\":\"x\"}"}]})"},
            {"no text block", R"({"content":[{"type":"image"}]})"},
            {"text not JSON", anthropicReply(R"("Sure! Here is the cleaned text: Hi.")")},
            {"code fence", anthropicReply(R"("```json\n{\"cleaned_text\":\"x\"}\n```")")},
            {"cleaned_text null", anthropicReply(R"("{\"cleaned_text\":null}")")},
            {"cleaned_text number", anthropicReply(R"("{\"cleaned_text\":5}")")},
            {"cleaned_text bool", anthropicReply(R"("{\"cleaned_text\":true}")")},
            {"cleaned_text array", anthropicReply(R"("{\"cleaned_text\":[\"x\"]}")")},
            {"cleaned_text object", anthropicReply(R"("{\"cleaned_text\":{\"a\":1}}")")},
            {"cleaned_text blank", anthropicReply(R"("{\"cleaned_text\":\" \\n \"}")")},
        });
}

TEST_F(HttpTransformerTest, AnthropicReplyDrippingForeverEndsAtTwiceTheTimeout) {
    expectADrippingReplyEndsAtTheExchangeLimit(
        [this](std::chrono::milliseconds timeout) { return anthropic(timeout); },
        anthropicReply(R"("{\"cleaned_text\":\"Hi there.\"}")"), QStringLiteral("Anthropic cleanup "));
}

TEST_F(HttpTransformerTest, AnthropicBodyOfExactly4MiBIsReadAndOneByteMoreIsNot) {
    QByteArray body = anthropicReply(R"("{\"cleaned_text\":\"Big.\"}")");
    body.append(QByteArray(4 * 1024 * 1024 - body.size(), ' ')); // trailing white space is valid JSON
    server.setJsonResponse(200, body);
    auto transformer = anthropic();
    const auto result = run(*transformer);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->text, QStringLiteral("Big."));

    server.setJsonResponse(200, body + ' ');
    LogCapture log;
    auto again = anthropic();
    EXPECT_EQ(run(*again), std::nullopt);
    EXPECT_EQ(log.appMessages(),
              QStringList{QStringLiteral(
                  "Anthropic cleanup request failed: The reply body is larger than 4194304 bytes.")});
}

TEST_F(HttpTransformerTest, AnthropicUnreachableServerIsATransferFailure) {
    const murmurly::testing::ClosedTcpPort closed;
    ASSERT_TRUE(closed.isHeld());
    const quint16 closedPort = closed.port();
    LogCapture log;
    AnthropicTransformer transformer(network, apiKey, QStringLiteral("m"),
                                     QUrl(QStringLiteral("http://127.0.0.1:%1/v1/messages").arg(closedPort)),
                                     2s);
    EXPECT_EQ(run(transformer), std::nullopt);
    ASSERT_EQ(log.appMessages().size(), 1);
    EXPECT_TRUE(log.appMessages()[0].startsWith(QStringLiteral("Anthropic cleanup request failed: ")));
}

TEST_F(HttpTransformerTest, AnthropicRefusesAServerWhoseCertificateIsNotTrusted) {
    QFile certificateFile(QStringLiteral(MURMURLY_TEST_DATA "/untrusted-localhost.pem"));
    QFile keyFile(QStringLiteral(MURMURLY_TEST_DATA "/untrusted-localhost.key"));
    ASSERT_TRUE(certificateFile.open(QIODevice::ReadOnly) && keyFile.open(QIODevice::ReadOnly));
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setLocalCertificate(QSslCertificate(certificateFile.readAll(), QSsl::Pem));
    configuration.setPrivateKey(QSslKey(keyFile.readAll(), QSsl::Rsa, QSsl::Pem));
    QSslServer tls;
    tls.setSslConfiguration(configuration);
    ASSERT_TRUE(tls.listen(QHostAddress::LocalHost, 0));
    QByteArray received; // whatever arrives after a handshake: must stay empty
    QObject::connect(&tls, &QSslServer::pendingConnectionAvailable, &tls, [&] {
        while (QTcpSocket* socket = tls.nextPendingConnection())
            QObject::connect(socket, &QTcpSocket::readyRead, socket,
                             [&, socket] { received += socket->readAll(); });
    });

    LogCapture log;
    AnthropicTransformer transformer(
        network, apiKey, QStringLiteral("claude-haiku-4-5"),
        QUrl(QStringLiteral("https://127.0.0.1:%1/v1/messages").arg(tls.serverPort())), unhurried);
    EXPECT_EQ(run(transformer, 2 * unhurried), std::nullopt);
    ASSERT_EQ(log.appMessages().size(), 1) << log.allText().toStdString();
    EXPECT_TRUE(log.appMessages()[0].startsWith(QStringLiteral("Anthropic cleanup request failed: ")));
    EXPECT_TRUE(log.appMessages()[0].contains(QStringLiteral("certificate"), Qt::CaseInsensitive))
        << log.appMessages()[0].toStdString();
    EXPECT_TRUE(received.isEmpty());
}

TEST_F(HttpTransformerTest, RequestWhoseNetworkManagerGoesAwayEndsWithoutAResult) {
    Response stall;
    stall.stall = true;
    server.setResponse(stall);
    auto doomed = std::make_unique<QNetworkAccessManager>();
    AnthropicTransformer transformer(*doomed, apiKey, QStringLiteral("claude-haiku-4-5"),
                                     QUrl(server.url(QStringLiteral("/v1/messages"))), 5s);
    LogCapture log;
    auto task = transformer.transform(transcript, prompt);
    ASSERT_TRUE(murmurly::testing::waitUntil([&] { return !server.requests().isEmpty(); }));
    doomed.reset();
    auto outcome = runBounded(std::move(task), 2s);
    ASSERT_TRUE(outcome.finished);
    EXPECT_EQ(*outcome.value, std::nullopt);
    EXPECT_EQ(log.appMessages(),
              QStringList{QStringLiteral("Anthropic cleanup request failed: The request was cancelled.")});
}

// ---- OpenAI-compatible ------------------------------------------------------------------------

TEST_F(HttpTransformerTest, OpenAIWaits20SecondsIdleAnd40InAll) {
    expectTheProductionLimitsAreInForce(CleanupProvider::openAICompatible, 20s,
                                        QStringLiteral("OpenAI-compatible cleanup "));
}

TEST_F(HttpTransformerTest, OpenAIBaseUrlWithAndWithoutTrailingSlashGivesTheSameRequestUrl) {
    server.setJsonResponse(200, chatReply(R"("{\"cleaned_text\":\"Hi.\"}")"));
    OpenAICompatibleTransformer plain(network, apiKey, QStringLiteral("gpt-4o-mini"),
                                      server.url(QStringLiteral("/v1")));
    OpenAICompatibleTransformer slash(network, apiKey, QStringLiteral("gpt-4o-mini"),
                                      server.url(QStringLiteral("/v1/")));
    ASSERT_TRUE(run(plain));
    ASSERT_TRUE(run(slash));
    ASSERT_EQ(server.requests().size(), 2);
    EXPECT_EQ(server.requests()[0].path, "/v1/chat/completions");
    EXPECT_EQ(server.requests()[1].path, "/v1/chat/completions");
}

TEST_F(HttpTransformerTest, OpenAIBaseUrlThatDoesNotParseYieldsAbsentAndNoTraffic) {
    LogCapture log;
    for (const QString& base :
         {QStringLiteral("http://127.0.0.1:%1/my models/v1").arg(server.port()),
          QStringLiteral("not a url at all"), QStringLiteral("127.0.0.1:%1/v1").arg(server.port())}) {
        OpenAICompatibleTransformer transformer(network, apiKey, QStringLiteral("gpt-4o-mini"), base);
        EXPECT_EQ(run(transformer), std::nullopt) << base.toStdString();
    }
    QCoreApplication::processEvents();
    EXPECT_TRUE(server.requests().isEmpty());
    EXPECT_TRUE(log.appMessages().isEmpty());
}

TEST_F(HttpTransformerTest, OpenAIRequestIsAPostWithContentTypeThenBearerAuthorization) {
    server.setJsonResponse(200, chatReply(R"("{\"cleaned_text\":\"Hi.\"}")"));
    auto transformer = openAI();
    ASSERT_TRUE(run(*transformer));
    ASSERT_EQ(server.requests().size(), 1);
    const auto& request = server.requests()[0];
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.header("Content-Type"), "application/json");
    EXPECT_EQ(request.header("Authorization"), "Bearer " + apiKey.toUtf8());
    const QList<QByteArray> names = request.headerNames();
    qsizetype contentType = -1, authorization = -1;
    for (qsizetype i = 0; i < names.size(); ++i) {
        if (names[i].compare("Content-Type", Qt::CaseInsensitive) == 0) contentType = i;
        if (names[i].compare("Authorization", Qt::CaseInsensitive) == 0) authorization = i;
    }
    EXPECT_GE(contentType, 0);
    EXPECT_LT(contentType, authorization);
    EXPECT_EQ(request.header("x-api-key"), QByteArray());
}

TEST_F(HttpTransformerTest, OpenAIRequestBodyMembersAreExactlyAsDescribed) {
    server.setJsonResponse(200, chatReply(R"("{\"cleaned_text\":\"Hi.\"}")"));
    auto transformer = openAI();
    ASSERT_TRUE(run(*transformer));
    ASSERT_EQ(server.requests().size(), 1);
    const auto body = JsonFields::parse<nlohmann::ordered_json>(server.requests()[0].body);
    ASSERT_TRUE(body.is_object());
    EXPECT_EQ(body.size(), 3u);
    EXPECT_EQ(body.at("model"), "gpt-4o-mini");
    EXPECT_EQ(body.at("messages"),
              nlohmann::ordered_json::parse(R"([{"role":"system","content":")" + prompt.toStdString() +
                                            R"("},{"role":"user","content":")" + transcript.toStdString() +
                                            R"("}])"));
    EXPECT_EQ(
        body.at("response_format"),
        nlohmann::ordered_json::parse(
            R"({"type":"json_schema","json_schema":{"name":"cleaned_transcript","strict":true,"schema":)"
            R"({"type":"object","properties":{"cleaned_text":{"type":"string"}},"required":["cleaned_text"],)"
            R"("additionalProperties":false}}})"));
    for (const char* absent : {"temperature", "max_tokens", "stream", "top_p"})
        EXPECT_FALSE(body.contains(absent));
}

TEST_F(HttpTransformerTest, OpenAIEmptyChoicesYieldAbsent) {
    server.setJsonResponse(200, R"({"choices":[],"usage":{"prompt_tokens":1,"completion_tokens":0}})");
    LogCapture log;
    auto transformer = openAI();
    EXPECT_EQ(run(*transformer), std::nullopt);
    EXPECT_TRUE(log.appMessages().isEmpty());
}

TEST_F(HttpTransformerTest, OpenAIFirstChoiceWithUsageYields250InputAnd9OutputTokensIgnoringTheTotal) {
    server.setJsonResponse(
        200, chatReply(R"("{\"cleaned_text\":\"Moved to Friday.\"}")",
                       R"(,"usage":{"prompt_tokens":250,"completion_tokens":9,"total_tokens":300})"));
    auto transformer = openAI();
    const auto result = run(*transformer);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->text, QStringLiteral("Moved to Friday."));
    EXPECT_EQ(result->usage, (TokenUsage{250, 9}));
}

TEST_F(HttpTransformerTest, OpenAIReplyWithoutUsageYieldsTheTextWithoutUsage) {
    server.setJsonResponse(200, chatReply(R"("{\"cleaned_text\":\"No usage.\"}")"));
    auto transformer = openAI();
    const auto result = run(*transformer);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->usage, std::nullopt);
}

TEST_F(HttpTransformerTest, OpenAI401YieldsAbsentAndOneErrorLogWith401) {
    server.setJsonResponse(401, R"({"error":{"message":"Incorrect API key provided"}})");
    LogCapture log;
    auto transformer = openAI();
    EXPECT_EQ(run(*transformer), std::nullopt);
    EXPECT_EQ(log.appMessages(), QStringList{QStringLiteral("OpenAI-compatible cleanup error 401")});
    ASSERT_EQ(log.lines().size(), 1) << log.allText().toStdString();
    EXPECT_EQ(log.lines()[0].type, QtCriticalMsg);
}

// Which of two events comes first, the network thread's own error for the status or the end of
// the exchange, varies from run to run; neither order may add a line to the log.
TEST_F(HttpTransformerTest, ErrorStatusesEndTheExchangeWithNothingButTheProvidersLine) {
    for (int round = 0; round < 20; ++round) {
        for (int code : {401, 500}) {
            SCOPED_TRACE(code);
            server.setJsonResponse(code, R"({"error":{"message":"no"}})");
            LogCapture log;
            auto transformer = openAI();
            EXPECT_EQ(run(*transformer), std::nullopt);
            murmurly::testing::keepRunning(
                std::chrono::milliseconds(50)); // what the network thread still had to say
            EXPECT_EQ(log.lines().size(), 1) << log.allText().toStdString();
        }
    }
}

TEST_F(HttpTransformerTest, OpenAIHostileRepliesYieldAbsentWithTheRightLog) {
    expectEveryHostileReplyFails(
        [this](std::chrono::milliseconds timeout) { return openAI(timeout); },
        chatReply(R"("{\"cleaned_text\":\"Hi there.\"}")"), QStringLiteral("OpenAI-compatible cleanup "),
        {
            {"choices not an array", R"({"choices":{"message":{"content":"x"}}})"},
            {"message not an object", R"({"choices":[{"message":"x"}]})"},
            {"content null (a refusal)", R"({"choices":[{"message":{"content":null,"refusal":"No."}}]})"},
            {"content not JSON", chatReply(R"("I can't help with that.")")},
            {"code fence", chatReply(R"("```json\n{\"cleaned_text\":\"x\"}\n```")")},
            {"cleaned_text null", chatReply(R"("{\"cleaned_text\":null}")")},
            {"cleaned_text number", chatReply(R"("{\"cleaned_text\":5}")")},
            {"cleaned_text bool", chatReply(R"("{\"cleaned_text\":false}")")},
            {"cleaned_text array", chatReply(R"("{\"cleaned_text\":[]}")")},
            {"cleaned_text object", chatReply(R"("{\"cleaned_text\":{}}")")},
            {"cleaned_text blank", chatReply(R"("{\"cleaned_text\":\"\"}")")},
        });
}

TEST_F(HttpTransformerTest, OpenAIReplyDrippingForeverEndsAtTwiceTheTimeout) {
    expectADrippingReplyEndsAtTheExchangeLimit(
        [this](std::chrono::milliseconds timeout) { return openAI(timeout); },
        chatReply(R"("{\"cleaned_text\":\"Hi there.\"}")"), QStringLiteral("OpenAI-compatible cleanup "));
}

// ---- Neither key nor transcript in any log ---------------------------------------------------

TEST_F(HttpTransformerTest, NeitherKeyNorTranscriptAppearsInAnyLogAtTheMostVerboseLevel) {
    qunsetenv("MURMURLY_LOG_PRIVATE");
    const QString key = QStringLiteral("sk-RECOGNISABLE-9f8e7d6c5b4a");
    const QString words = QStringLiteral("zanzibar quokka marmalade");
    LogCapture log(/*everything=*/true);
    qCDebug(lcApp) << "debug output is captured"; // proves the most verbose level is on

    const QByteArray echoed = R"({"cleaned_text":")" + words.toUtf8() + R"("})";
    Response stall;
    stall.stall = true;
    const std::vector<Response> replies = {
        respond(200, anthropicReply(R"("{\"cleaned_text\":\"zanzibar quokka marmalade.\"}")",
                                    R"(,"usage":{"input_tokens":1,"output_tokens":2})")),
        respond(200, chatReply(R"("{\"cleaned_text\":\"zanzibar quokka marmalade.\"}")")),
        respond(200, "Not JSON: " + words.toUtf8() + " " + key.toUtf8()),
        respond(200, "{\"content\": " + echoed + " zanzibar"),
        respond(200, anthropicReply(R"("{\"cleaned_text\":\"x\"}")", R"(,"stop_reason":"refusal")")),
        respond(401, key.toUtf8()),
        stall,
    };
    for (const Response& reply : replies) {
        server.setResponse(reply);
        // Only the stall waits for a limit; every other reply ends the exchange by itself.
        const std::chrono::milliseconds timeout = reply.stall ? 300ms : unhurried;
        AnthropicTransformer a(network, key, QStringLiteral("claude-haiku-4-5"),
                               QUrl(server.url(QStringLiteral("/v1/messages"))), timeout);
        OpenAICompatibleTransformer o(network, key, QStringLiteral("gpt-4o-mini"),
                                      server.url(QStringLiteral("/v1")), timeout);
        auto first = runBounded(a.transform(words, CleanupPrompt::system), 2 * unhurried);
        auto second = runBounded(o.transform(words, CleanupPrompt::system), 2 * unhurried);
        EXPECT_TRUE(first.finished && second.finished);
    }
    const QString all = log.allText();
    EXPECT_TRUE(all.contains(QStringLiteral("debug output is captured")));
    EXPECT_TRUE(all.contains(QStringLiteral("Anthropic cleanup error 401"))); // the failures were logged
    EXPECT_TRUE(all.contains(QStringLiteral("OpenAI-compatible cleanup request failed")));
    EXPECT_FALSE(all.contains(key));
    EXPECT_FALSE(all.contains(QStringLiteral("RECOGNISABLE")));
    for (const QString& word : words.split(QLatin1Char(' ')))
        EXPECT_FALSE(all.contains(word)) << word.toStdString();
}
