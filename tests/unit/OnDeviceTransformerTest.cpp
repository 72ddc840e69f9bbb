#include "cleanup/OnDeviceTransformer.h"
#include "FakeLocalLanguageModel.h"
#include "LogCapture.h"
#include "RunTask.h"

#include <gtest/gtest.h>

using namespace murmurly;
using murmurly::testing::FakeLocalLanguageModel;
using murmurly::testing::LogCapture;
using murmurly::testing::runBounded;
using Availability = LocalLanguageModel::Availability;

namespace {

std::optional<TransformResult> run(FakeLocalLanguageModel& model,
                                   const QString& text = QStringLiteral("um hi")) {
    OnDeviceTransformer transformer(model);
    auto outcome = runBounded(transformer.transform(text, QStringLiteral("The prompt.")));
    EXPECT_TRUE(outcome.finished);
    return outcome.value ? *outcome.value : std::nullopt;
}

} // namespace

TEST(OnDeviceTransformer, ModelNotReadyYieldsAbsentAndTheNoModelReason) {
    FakeLocalLanguageModel model;
    model.state = Availability::noModel;
    LogCapture log;
    EXPECT_EQ(run(model), std::nullopt);
    EXPECT_TRUE(model.userTurnsSeen.isEmpty());
    EXPECT_EQ(model.unavailableReason(), QStringLiteral("The local model server lists no model."));
    EXPECT_TRUE(log.appMessages().isEmpty());
}

TEST(OnDeviceTransformer, UnreachableServerYieldsAbsentAndNamesTheUrl) {
    FakeLocalLanguageModel model;
    model.state = Availability::serverUnreachable;
    EXPECT_EQ(run(model), std::nullopt);
    EXPECT_EQ(model.unavailableReason(),
              QStringLiteral("No local model server answered at http://127.0.0.1:11434/v1."));
    model.state = Availability::unchecked;
    EXPECT_EQ(run(model), std::nullopt);
    model.state = Availability::available;
    EXPECT_EQ(model.unavailableReason(), std::nullopt);
}

TEST(OnDeviceTransformer, PromptIsTheInstructionsAndTheTranscriptTheUserTurn) {
    FakeLocalLanguageModel model;
    const auto result = run(model, QStringLiteral("um hi there"));
    ASSERT_TRUE(result);
    EXPECT_EQ(model.instructionsSeen, QStringList{QStringLiteral("The prompt.")});
    EXPECT_EQ(model.userTurnsSeen, QStringList{QStringLiteral("um hi there")});
}

TEST(OnDeviceTransformer, GeneratedWhiteSpaceOnlyYieldsAbsent) {
    FakeLocalLanguageModel model;
    model.next = {QStringLiteral(" \n\t "), {}};
    EXPECT_EQ(run(model), std::nullopt);
}

TEST(OnDeviceTransformer, ResultIsTrimmedAndNeverCarriesUsage) {
    FakeLocalLanguageModel model;
    model.next = {QStringLiteral("  Hello there.\n"), {}};
    const auto result = run(model);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->text, QStringLiteral("Hello there."));
    EXPECT_EQ(result->usage, std::nullopt);
}

TEST(OnDeviceTransformer, GenerationFailureIsLoggedWithItsError) {
    FakeLocalLanguageModel model;
    model.next = {std::nullopt, QStringLiteral("the model ran out of context")};
    LogCapture log;
    EXPECT_EQ(run(model), std::nullopt);
    ASSERT_EQ(log.lines().size(), 1);
    EXPECT_EQ(log.lines()[0].type, QtCriticalMsg);
    EXPECT_EQ(log.appMessages(),
              QStringList{QStringLiteral("On-device cleanup failed: the model ran out of context")});
}
