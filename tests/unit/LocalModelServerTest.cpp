#include "cleanup/LocalModelServer.h"
#include "ClosedTcpPort.h"
#include "LogCapture.h"
#include "MemoryDefaults.h"
#include "RunTask.h"
#include "StandInHttpServer.h"
#include "cleanup/CleanupPrompt.h"
#include "cleanup/OnDeviceTransformer.h"
#include "core/JsonFields.h"

#include <QHostAddress>
#include <QNetworkAccessManager>

#include <gtest/gtest.h>

using namespace murmurly;
using namespace std::chrono_literals;
using murmurly::testing::LogCapture;
using murmurly::testing::MemoryDefaults;
using murmurly::testing::runBounded;
using murmurly::testing::StandInHttpServer;
using murmurly::testing::waitUntil;
using Availability = LocalLanguageModel::Availability;
using Response = StandInHttpServer::Response;

namespace {

Response json(int status, QByteArray body) {
    Response response;
    response.status = status;
    response.body = std::move(body);
    return response;
}

QByteArray answer(const QByteArray& contentJson) {
    return R"({"choices":[{"message":{"role":"assistant","content":)" + contentJson +
           R"(}}],"usage":{"prompt_tokens":5,"completion_tokens":3}})";
}

} // namespace

class LocalModelServerTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server.start());
        defaults.setString(LocalModelServer::baseURLKey, server.url(QStringLiteral("/v1")));
        server.setResponder([this](const StandInHttpServer::Request& request) {
            if (request.path == "/v1/models") return models;
            return generation;
        });
    }

    // Limits long enough that no answer of the stand-in, however busy the machine, is overtaken
    // by them; only the stalled generation below waits for one.
    std::unique_ptr<LocalModelServer> make(std::chrono::milliseconds generationTimeout = 30s) {
        return std::make_unique<LocalModelServer>(defaults, network, nullptr, 30s, generationTimeout);
    }

    // A server whose availability check has been answered.
    std::unique_ptr<LocalModelServer> settled(std::chrono::milliseconds generationTimeout = 30s) {
        auto model = make(generationTimeout);
        EXPECT_TRUE(waitUntil([&] { return model->availability() != Availability::unchecked; }));
        return model;
    }

    qsizetype modelListRequests() const {
        qsizetype n = 0;
        for (const auto& request : server.requests())
            if (request.path == "/v1/models") ++n;
        return n;
    }

    MemoryDefaults defaults;
    QNetworkAccessManager network;
    StandInHttpServer server;
    Response models =
        json(200, R"({"object":"list","data":[{"id":"llama3.2:3b","object":"model"},{"id":"qwen2.5:7b"}]})");
    Response generation = json(200, answer(R"("{\"cleanedText\":\"Hello there.\"}")"));
};

TEST(LocalModelServerDefaults, BaseUrlIsLoopbackPort11434AndTheModelIsEmpty) {
    MemoryDefaults defaults;
    QNetworkAccessManager network;
    // The availability check this starts goes to the loopback address only.
    EXPECT_EQ(LocalModelServer::defaultBaseURL, QStringLiteral("http://127.0.0.1:11434/v1"));
    defaults.setString(LocalModelServer::baseURLKey, QString());
    LocalModelServer model(defaults, network);
    EXPECT_EQ(model.effectiveBaseURL(),
              QStringLiteral("http://127.0.0.1:11434/v1")); // stored empty = default
    EXPECT_EQ(model.model(), QString());
    // Let the check finish: a request whose network manager is destroyed never completes.
    EXPECT_TRUE(waitUntil([&] { return model.availability() != Availability::unchecked; }));
}

TEST_F(LocalModelServerTest, AvailabilityIsKnownWithoutWaitingAndSettlesInTheBackground) {
    auto model = make();
    EXPECT_EQ(model->availability(), Availability::unchecked); // the check is still under way
    EXPECT_TRUE(waitUntil([&] { return model->availability() == Availability::available; }));
    EXPECT_EQ(model->unavailableReason(), std::nullopt);
    EXPECT_EQ(model->listedModels(),
              (QStringList{QStringLiteral("llama3.2:3b"), QStringLiteral("qwen2.5:7b")}));
    EXPECT_EQ(model->resolvedModel(), QStringLiteral("llama3.2:3b"));
    ASSERT_EQ(server.requests().size(), 1);
    EXPECT_EQ(server.requests()[0].method, "GET");
    EXPECT_EQ(server.requests()[0].path, "/v1/models");
}

TEST_F(LocalModelServerTest, ServerListingNoModelIsTheModelNotReadyCase) {
    models = json(200, R"({"object":"list","data":[]})");
    auto model = settled();
    EXPECT_EQ(model->availability(), Availability::noModel);
    EXPECT_EQ(model->unavailableReason(), QStringLiteral("The local model server lists no model."));
    OnDeviceTransformer transformer(*model);
    auto outcome = runBounded(transformer.transform(QStringLiteral("um hi"), CleanupPrompt::system));
    ASSERT_TRUE(outcome.finished);
    EXPECT_EQ(*outcome.value, std::nullopt);
    EXPECT_EQ(server.requests().size(), 1); // no generation was attempted
}

TEST_F(LocalModelServerTest, ChosenModelThatIsNotListedMeansNoModel) {
    defaults.setString(LocalModelServer::modelKey, QStringLiteral("mistral:7b"));
    auto model = settled();
    EXPECT_EQ(model->availability(), Availability::noModel);
    model->setModel(QStringLiteral("qwen2.5:7b"));
    EXPECT_TRUE(waitUntil([&] { return model->availability() == Availability::available; }));
    EXPECT_EQ(model->resolvedModel(), QStringLiteral("qwen2.5:7b"));
    EXPECT_EQ(defaults.stringValue(LocalModelServer::modelKey), QStringLiteral("qwen2.5:7b"));
}

TEST_F(LocalModelServerTest, NothingAnsweringNamesTheUrlInTheReason) {
    const murmurly::testing::ClosedTcpPort closed;
    ASSERT_TRUE(closed.isHeld());
    const QString base = QStringLiteral("http://127.0.0.1:%1/v1").arg(closed.port());
    defaults.setString(LocalModelServer::baseURLKey, base);
    auto model = settled();
    EXPECT_EQ(model->availability(), Availability::serverUnreachable);
    EXPECT_EQ(model->unavailableReason(),
              QStringLiteral("No local model server answered at ") + base + QStringLiteral("."));
}

TEST_F(LocalModelServerTest, AnswerThatIsNotAModelListCountsAsNoServer) {
    for (const Response& reply :
         {json(404, "not found"), json(200, "<html>"), json(200, R"({"models":[]})")}) {
        models = reply;
        auto model = settled();
        EXPECT_EQ(model->availability(), Availability::serverUnreachable);
    }
}

TEST_F(LocalModelServerTest, ChangingTheBaseUrlStoresItAndChecksAgain) {
    auto model = settled();
    ASSERT_EQ(model->availability(), Availability::available);
    const murmurly::testing::ClosedTcpPort closed;
    ASSERT_TRUE(closed.isHeld());
    const QString elsewhere = QStringLiteral("http://127.0.0.1:%1/v1").arg(closed.port());
    model->setBaseURL(elsewhere);
    EXPECT_EQ(defaults.stringValue(LocalModelServer::baseURLKey), elsewhere);
    EXPECT_TRUE(waitUntil([&] { return model->availability() == Availability::serverUnreachable; }));
    model->setBaseURL(server.url(QStringLiteral("/v1/")));
    EXPECT_TRUE(waitUntil([&] { return model->availability() == Availability::available; }));
    EXPECT_EQ(modelListRequests(), 2);
}

TEST_F(LocalModelServerTest, AskingForACheckListsTheModelsAgain) {
    auto model = settled();
    models = json(200, R"({"data":[]})");
    model->refreshAvailability();
    EXPECT_TRUE(waitUntil([&] { return model->availability() == Availability::noModel; }));
    EXPECT_EQ(modelListRequests(), 2);
}

TEST_F(LocalModelServerTest, GenerationSendsInstructionsAndTranscriptAskingForTheCleanedTextObject) {
    auto model = settled();
    OnDeviceTransformer transformer(*model);
    auto outcome =
        runBounded(transformer.transform(QStringLiteral("um hello there"), QStringLiteral("Tidy up.")));
    ASSERT_TRUE(outcome.finished);
    ASSERT_TRUE(*outcome.value);
    EXPECT_EQ((*outcome.value)->text, QStringLiteral("Hello there."));
    EXPECT_EQ((*outcome.value)->usage, std::nullopt); // even though the server reported usage

    ASSERT_EQ(server.requests().size(), 2);
    const auto& request = server.requests()[1];
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.path, "/v1/chat/completions");
    EXPECT_EQ(request.header("Content-Type"), "application/json");
    EXPECT_EQ(request.header("Authorization"), QByteArray());
    const auto body = JsonFields::parse<nlohmann::ordered_json>(request.body);
    EXPECT_EQ(body, nlohmann::ordered_json::parse(
                        R"({"model":"llama3.2:3b","messages":[)"
                        R"({"role":"system","content":"Tidy up."},)"
                        R"({"role":"user","content":"um hello there"}],)"
                        R"("response_format":{"type":"json_schema","json_schema":)"
                        R"({"name":"cleaned_transcript","strict":true,"schema":)"
                        R"({"type":"object","properties":{"cleanedText":{"type":"string",)"
                        R"("description":"The cleaned transcript text, with filler )"
                        R"(removed and punctuation fixed"}},"required":["cleanedText"],)"
                        R"("additionalProperties":false}}}})"));
}

TEST_F(LocalModelServerTest, GeneratedWhiteSpaceOnlyYieldsAbsentWithoutALog) {
    auto model = settled();
    generation = json(200, answer(R"("{\"cleanedText\":\"  \\n \"}")"));
    LogCapture log;
    OnDeviceTransformer transformer(*model);
    auto outcome = runBounded(transformer.transform(QStringLiteral("um"), CleanupPrompt::system));
    ASSERT_TRUE(outcome.finished);
    EXPECT_EQ(*outcome.value, std::nullopt);
    EXPECT_TRUE(log.appMessages().isEmpty());
}

TEST_F(LocalModelServerTest, FailedGenerationsAreLoggedAndTriggerACheck) {
    Response stall;
    stall.stall = true;
    const std::pair<Response, QString> cases[] = {
        {json(500, "boom"),
         QStringLiteral("On-device cleanup failed: The local model server answered with status 500.")},
        {json(200, "not json"),
         QStringLiteral("On-device cleanup failed: The reply is not valid JSON (byte 2 of 8).")},
        {json(200, R"({"choices":[]})"),
         QStringLiteral(
             "On-device cleanup failed: The local model server's reply holds no message content.")},
        {json(200, answer(R"("{\"cleaned_text\":\"x\"}")")),
         QStringLiteral(
             "On-device cleanup failed: The model's answer is not an object with a string \"cleanedText\".")},
        {stall, QStringLiteral("On-device cleanup failed: The request timed out.")},
    };
    for (const auto& [reply, expected] : cases) {
        SCOPED_TRACE(expected.toStdString());
        auto model = settled(reply.stall ? 300ms : 30s);
        ASSERT_EQ(model->availability(), Availability::available);
        const qsizetype checksBefore = modelListRequests();
        generation = reply;
        LogCapture log;
        OnDeviceTransformer transformer(*model);
        auto outcome = runBounded(transformer.transform(QStringLiteral("um"), CleanupPrompt::system), 60s);
        ASSERT_TRUE(outcome.finished);
        EXPECT_EQ(*outcome.value, std::nullopt);
        EXPECT_EQ(log.appMessages(), QStringList{expected});
        EXPECT_TRUE(waitUntil([&] { return modelListRequests() == checksBefore + 1; }));
        EXPECT_TRUE(waitUntil([&] { return model->availability() == Availability::available; }));
    }
}

TEST_F(LocalModelServerTest, AskingAgainFindsAServerThatStartedSinceTheLastCheck) {
    models = json(500, "starting");
    auto model = settled();
    ASSERT_EQ(model->availability(), Availability::serverUnreachable);
    models = json(200, R"({"data":[{"id":"llama3.2:3b"}]})");
    auto outcome = runBounded(model->checkAvailability(), 60s);
    ASSERT_TRUE(outcome.finished);
    EXPECT_EQ(*outcome.value, Availability::available);
    EXPECT_EQ(model->availability(), Availability::available);
    EXPECT_EQ(modelListRequests(), 2);

    models = json(500, "stopped");
    outcome = runBounded(model->checkAvailability(), 60s);
    ASSERT_TRUE(outcome.finished);
    EXPECT_EQ(*outcome.value, Availability::serverUnreachable);
    EXPECT_EQ(model->availability(), Availability::serverUnreachable);
}
