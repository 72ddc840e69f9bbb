#include "cleanup/AnthropicMessages.h"
#include "cleanup/ChatCompletions.h"
#include "cleanup/CleanupPrompt.h"

#include <gtest/gtest.h>

using namespace murmurly;
using Kind = ProviderReply::Kind;

namespace {

const QString prompt = QStringLiteral("Be tidy.");
const QString text = QString::fromUtf8("um so the \"plan\" — is ready");

} // namespace

TEST(AnthropicMessages, RequestBodyHasExactlyTheFiveMembersInOrder) {
    const auto body = AnthropicMessages::requestBody(QStringLiteral("claude-haiku-4-5"), prompt, text);
    ASSERT_EQ(body.size(), 5u);
    std::vector<std::string> keys;
    for (const auto& [key, value] : body.items())
        keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<std::string>{"model", "max_tokens", "system", "output_config", "messages"}));
    EXPECT_EQ(body["model"], "claude-haiku-4-5");
    EXPECT_TRUE(body["max_tokens"].is_number_integer());
    EXPECT_EQ(body["max_tokens"], 4096);
    EXPECT_EQ(body["system"], "Be tidy.");
    EXPECT_EQ(body["output_config"].size(), 1u);
    EXPECT_EQ(body["output_config"]["format"].size(), 2u);
    EXPECT_EQ(body["output_config"]["format"]["type"], "json_schema");
    EXPECT_EQ(body["output_config"]["format"]["schema"], CleanupPrompt::jsonSchema);
    ASSERT_EQ(body["messages"].size(), 1u);
    EXPECT_EQ(body["messages"][0].size(), 2u);
    EXPECT_EQ(body["messages"][0]["role"], "user");
    EXPECT_EQ(body["messages"][0]["content"], text.toStdString());
}

TEST(AnthropicMessages, SingleTextBlockWithUsageYieldsTextAndUsage) {
    const auto reply = AnthropicMessages::parseReply(
        R"({"content":[{"type":"text","text":"{\"cleaned_text\":\"Hello.\"}"}],"stop_reason":"end_turn",)"
        R"("usage":{"input_tokens":310,"output_tokens":12}})");
    ASSERT_EQ(reply.kind, Kind::cleaned);
    EXPECT_EQ(reply.result, (TransformResult{QStringLiteral("Hello."), TokenUsage{310, 12}}));
}

TEST(AnthropicMessages, ObjectSplitAcrossTwoTextBlocksIsJoined) {
    const auto reply = AnthropicMessages::parseReply(
        R"({"content":[{"type":"text","text":"{\"cleaned_"},{"type":"text","text":"text\":\"Joined.\"}"}]})");
    ASSERT_EQ(reply.kind, Kind::cleaned);
    EXPECT_EQ(reply.result->text, QStringLiteral("Joined."));
}

TEST(AnthropicMessages, BlocksOfOtherTypesAndTextBlocksWithoutStringTextAreSkipped) {
    const auto reply = AnthropicMessages::parseReply(
        R"({"content":[{"type":"thinking","text":"{\"x\":"},{"type":"text","text":5},{"type":"text"},)"
        R"({"type":"text","text":"{\"cleaned_text\":\"Kept.\"}"}]})");
    ASSERT_EQ(reply.kind, Kind::cleaned);
    EXPECT_EQ(reply.result->text, QStringLiteral("Kept."));
}

TEST(AnthropicMessages, MissingOrMalformedUsageStillYieldsText) {
    for (const char* usage : {"", R"(,"usage":5)", R"(,"usage":{"input_tokens":3})",
                              R"(,"usage":{"input_tokens":3,"output_tokens":"4"})",
                              R"(,"usage":{"input_tokens":3.5,"output_tokens":4})"}) {
        const QByteArray body =
            QByteArray(R"({"content":[{"type":"text","text":"{\"cleaned_text\":\"A.\"}"}])") + usage + "}";
        const auto reply = AnthropicMessages::parseReply(body);
        ASSERT_EQ(reply.kind, Kind::cleaned) << body.constData();
        EXPECT_EQ(reply.result->text, QStringLiteral("A."));
        EXPECT_EQ(reply.result->usage, std::nullopt) << body.constData();
    }
}

TEST(AnthropicMessages, RefusalWinsOverAPresentTextBlock) {
    const auto reply = AnthropicMessages::parseReply(
        R"({"stop_reason":"refusal","content":[{"type":"text","text":"{\"cleaned_text\":\"Hello.\"}"}]})");
    EXPECT_EQ(reply.kind, Kind::refused);
    EXPECT_EQ(reply.result, std::nullopt);
}

TEST(AnthropicMessages, TruncatedStopReasonIsNotChecked) {
    const auto reply = AnthropicMessages::parseReply(
        R"({"stop_reason":"max_tokens","content":[{"type":"text","text":"{\"cleaned_text\":\"Hi.\"}"}]})");
    EXPECT_EQ(reply.kind, Kind::cleaned);
}

TEST(AnthropicMessages, WrongShapesAreUnusableAndNonJsonIsUnparsable) {
    for (const char* body : {"[]", R"({})", R"({"content":"text"})", R"({"content":{}})",
                             R"({"content":[1]})", R"({"content":[{"type":"text","text":"not json"}]})",
                             R"({"content":[{"type":"text","text":"{\"cleaned_text\":7}"}]})"}) {
        EXPECT_EQ(AnthropicMessages::parseReply(body).kind, Kind::unusable) << body;
    }
    for (const char* body : {"", "<html>", "\"a string\"", "12", "{\"content\":", "\xff\xfe{}"}) {
        const auto reply = AnthropicMessages::parseReply(body);
        EXPECT_EQ(reply.kind, Kind::unparsable) << body;
        EXPECT_FALSE(reply.error.isEmpty());
    }
}

TEST(AnthropicMessages, ParseErrorTextNeverQuotesTheBody) {
    const auto reply = AnthropicMessages::parseReply("{\"content\": Dear diary, my secret words");
    ASSERT_EQ(reply.kind, Kind::unparsable);
    EXPECT_FALSE(reply.error.contains(QStringLiteral("diary")));
    EXPECT_FALSE(reply.error.contains(QStringLiteral("secret")));
}

TEST(ChatCompletions, EndpointWithAndWithoutOneTrailingSlashIsTheSame) {
    const auto plain = ChatCompletions::endpoint(QStringLiteral("https://api.example.com/v1"));
    const auto slash = ChatCompletions::endpoint(QStringLiteral("https://api.example.com/v1/"));
    ASSERT_TRUE(plain && slash);
    EXPECT_EQ(plain->toString(), QStringLiteral("https://api.example.com/v1/chat/completions"));
    EXPECT_EQ(*plain, *slash);
    // Exactly one character is dropped: a double slash keeps one.
    EXPECT_EQ(ChatCompletions::endpoint(QStringLiteral("http://localhost:8080/v1//"))->toString(),
              QStringLiteral("http://localhost:8080/v1//chat/completions"));
}

TEST(ChatCompletions, TextThatIsNotAUrlHasNoEndpoint) {
    for (const char* base : {"https://api example.com/v1", "not a url", "", "api.openai.com/v1",
                             "ftp://host/v1", "https:///v1"}) {
        EXPECT_EQ(ChatCompletions::endpoint(QString::fromUtf8(base)), std::nullopt) << base;
    }
}

TEST(ChatCompletions, RequestBodyHasExactlyTheThreeMembersInOrder) {
    const auto body = ChatCompletions::requestBody(QStringLiteral("gpt-4o-mini"), prompt, text,
                                                   "cleaned_transcript", CleanupPrompt::jsonSchema);
    std::vector<std::string> keys;
    for (const auto& [key, value] : body.items())
        keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<std::string>{"model", "messages", "response_format"}));
    EXPECT_EQ(body["model"], "gpt-4o-mini");
    ASSERT_EQ(body["messages"].size(), 2u);
    EXPECT_EQ(body["messages"][0], (nlohmann::ordered_json{{"role", "system"}, {"content", "Be tidy."}}));
    EXPECT_EQ(body["messages"][1],
              (nlohmann::ordered_json{{"role", "user"}, {"content", text.toStdString()}}));
    const auto& format = body["response_format"];
    EXPECT_EQ(format.size(), 2u);
    EXPECT_EQ(format["type"], "json_schema");
    EXPECT_EQ(format["json_schema"].size(), 3u);
    EXPECT_EQ(format["json_schema"]["name"], "cleaned_transcript");
    EXPECT_EQ(format["json_schema"]["strict"], true);
    EXPECT_EQ(format["json_schema"]["schema"], CleanupPrompt::jsonSchema);
}

TEST(ChatCompletions, FirstChoiceWithUsageYieldsTextAndUsageIgnoringTheTotal) {
    const auto reply = ChatCompletions::parseReply(
        R"({"choices":[{"message":{"role":"assistant","content":"{\"cleaned_text\":\"Done.\"}"}},)"
        R"({"message":{"content":"{\"cleaned_text\":\"Second.\"}"}}],)"
        R"("usage":{"prompt_tokens":250,"completion_tokens":9,"total_tokens":259}})");
    ASSERT_EQ(reply.kind, Kind::cleaned);
    EXPECT_EQ(reply.result, (TransformResult{QStringLiteral("Done."), TokenUsage{250, 9}}));
}

TEST(ChatCompletions, ReplyWithoutUsageYieldsTextWithoutUsage) {
    const auto reply = ChatCompletions::parseReply(
        R"({"choices":[{"message":{"content":"{\"cleaned_text\":\"Done.\"}"}}]})");
    ASSERT_EQ(reply.kind, Kind::cleaned);
    EXPECT_EQ(reply.result->usage, std::nullopt);
}

TEST(ChatCompletions, EmptyChoicesNullContentAndWrongShapesAreUnusable) {
    for (
        const char* body :
        {R"({"choices":[]})", R"({})", "[]", R"({"choices":{}})", R"({"choices":[1]})",
         R"({"choices":[{"message":{"content":null}}]})", R"({"choices":[{"message":"x"}]})",
         R"({"choices":[{}]})", R"({"choices":[{"message":{"content":"{\"cleaned_text\":\" \"}"}}]})",
         R"({"choices":[{"message":{"refusal":"I can't help with that.","content":"I can't help with that."}}]})"}) {
        EXPECT_EQ(ChatCompletions::parseReply(body).kind, Kind::unusable) << body;
    }
    EXPECT_EQ(ChatCompletions::parseReply("nonsense").kind, Kind::unparsable);
}

TEST(ProviderReply, NumberTooLargeForAnyTypeIsAParseErrorNotACrash) {
    for (const QByteArray& body :
         {QByteArray(R"({"usage":{"input_tokens":1e999}})"), QByteArray("[-1e400]")}) {
        EXPECT_EQ(AnthropicMessages::parseReply(body).kind, Kind::unparsable) << body.constData();
        EXPECT_EQ(ChatCompletions::parseReply(body).kind, Kind::unparsable) << body.constData();
        EXPECT_EQ(ChatCompletions::parseReply(body).error,
                  QStringLiteral("The reply holds a JSON number out of range."));
    }
}

namespace {

// An array nested `depth` deep, as the value of a member the readers ignore.
QByteArray nested(int depth) {
    return QByteArray(depth, '[') + QByteArray(depth, ']');
}

} // namespace

TEST(ProviderReply, MembersNestedMoreThan64DeepMakeTheReplyUnparsable) {
    const QByteArray reply = R"({"content":[{"type":"text","text":"{\"cleaned_text\":\"Hi.\"}"}],"extra":)";
    // The reply object itself is the first level.
    const auto deepest = AnthropicMessages::parseReply(reply + nested(63) + "}");
    EXPECT_EQ(deepest.kind, Kind::cleaned);
    const auto tooDeep = AnthropicMessages::parseReply(reply + nested(64) + "}");
    EXPECT_EQ(tooDeep.kind, Kind::unparsable);
    EXPECT_EQ(tooDeep.error, QStringLiteral("The reply nests arrays or objects more than 64 deep."));
}

TEST(ProviderReply, FourMiBOfOpeningBracketsIsRefusedAsTooDeep) {
    const QByteArray brackets(4 * 1024 * 1024, '[');
    for (const ProviderReply& reply :
         {AnthropicMessages::parseReply(brackets), ChatCompletions::parseReply(brackets)}) {
        EXPECT_EQ(reply.kind, Kind::unparsable);
        EXPECT_EQ(reply.error, QStringLiteral("The reply nests arrays or objects more than 64 deep."));
    }
}

TEST(ProviderReply, BracketsInsideStringsDoNotCountAsNesting) {
    const QByteArray brackets = "{{{{" + QByteArray(200, '[');
    const auto reply = AnthropicMessages::parseReply(
        R"({"content":[{"type":"text","text":"{\"cleaned_text\":\")" + brackets + R"(\\\"\"}"}]})");
    ASSERT_EQ(reply.kind, Kind::cleaned) << reply.error.toStdString();
    EXPECT_EQ(reply.result->text, QString::fromLatin1(brackets + '"'));
}
