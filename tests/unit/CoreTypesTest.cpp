#include "core/CaptureMode.h"
#include "core/DictationState.h"
#include "core/ModelStatus.h"
#include "core/ReferenceDate.h"
#include "core/Uuid.h"

#include <gtest/gtest.h>

using namespace murmurly;

TEST(ModelStatus, MenuLabelsNameEachStatus) {
    EXPECT_EQ(ModelStatus::checking().menuLabel(), QString::fromUtf8("Model: checking…"));
    EXPECT_EQ(ModelStatus::downloading().menuLabel(), QString::fromUtf8("Model: downloading…"));
    EXPECT_EQ(ModelStatus::ready().menuLabel(), QStringLiteral("Model: ready"));
    EXPECT_EQ(ModelStatus::failed(QStringLiteral("No model.")).menuLabel(),
              QString::fromUtf8("Model: failed — No model."));
}

TEST(ModelStatus, FailedWithEmptyMessageKeepsTheTrailingSpace) {
    const QString label = ModelStatus::failed(QString()).menuLabel();
    EXPECT_EQ(label, QString::fromUtf8("Model: failed — "));
    EXPECT_TRUE(label.endsWith(QLatin1Char(' ')));
}

TEST(ModelStatus, InitialStatusIsChecking) {
    EXPECT_EQ(ModelStatus{}, ModelStatus::checking());
}

TEST(CaptureMode, CasesInOrderWithRawValuesTitlesAndHelp) {
    ASSERT_EQ(CaptureModes::allCases.size(), 2u);
    EXPECT_EQ(CaptureModes::allCases[0], CaptureMode::hold);
    EXPECT_EQ(CaptureModes::allCases[1], CaptureMode::toggle);
    EXPECT_EQ(CaptureModes::rawValue(CaptureMode::hold), QStringLiteral("hold"));
    EXPECT_EQ(CaptureModes::rawValue(CaptureMode::toggle), QStringLiteral("toggle"));
    EXPECT_EQ(CaptureModes::title(CaptureMode::hold), QStringLiteral("Hold to talk"));
    EXPECT_EQ(CaptureModes::title(CaptureMode::toggle), QStringLiteral("Toggle (tap to start/stop)"));
    EXPECT_EQ(CaptureModes::helpText(CaptureMode::hold),
              QStringLiteral("Hold the trigger to dictate; release to insert. Press Esc to cancel."));
    EXPECT_EQ(CaptureModes::helpText(CaptureMode::toggle),
              QStringLiteral("Tap the trigger to start, tap again to stop. Press Esc to cancel."));
}

TEST(CaptureMode, StoredToggleReadsAsToggle) {
    EXPECT_EQ(CaptureModes::fromStored(QStringLiteral("toggle")), CaptureMode::toggle);
    EXPECT_EQ(CaptureModes::fromStored(QStringLiteral("hold")), CaptureMode::hold);
}

TEST(CaptureMode, WrongCaseOrUnknownStoredModeReadsAsHold) {
    EXPECT_EQ(CaptureModes::fromStored(QStringLiteral("Toggle")), CaptureMode::hold);
    EXPECT_EQ(CaptureModes::fromStored(QStringLiteral("tap")), CaptureMode::hold);
    EXPECT_EQ(CaptureModes::fromStored(QString()), CaptureMode::hold);
    EXPECT_EQ(CaptureModes::fromStored(std::nullopt), CaptureMode::hold);
}

TEST(DictationState, TagsFollowDeclarationOrder) {
    EXPECT_EQ(static_cast<int>(DictationState::idle), 0);
    EXPECT_EQ(static_cast<int>(DictationState::recording), 1);
    EXPECT_EQ(static_cast<int>(DictationState::transcribing), 2);
    EXPECT_EQ(static_cast<int>(DictationState::cleaning), 3);
    EXPECT_EQ(static_cast<int>(DictationState::inserting), 4);
    EXPECT_LT(DictationState::idle, DictationState::inserting);
}

TEST(StateLabel, EachStateHasItsText) {
    for (const CaptureMode mode : CaptureModes::allCases) {
        EXPECT_EQ(stateLabel(DictationState::idle, mode), QStringLiteral("Idle"));
        EXPECT_EQ(stateLabel(DictationState::transcribing, mode), QString::fromUtf8("Transcribing…"));
        EXPECT_EQ(stateLabel(DictationState::cleaning, mode), QString::fromUtf8("Cleaning up…"));
        EXPECT_EQ(stateLabel(DictationState::inserting, mode), QString::fromUtf8("Inserting…"));
    }
}

TEST(StateLabel, RecordingLabelFollowsTheCaptureModeSwitchedDuringARecording) {
    CaptureMode mode = CaptureMode::hold;
    EXPECT_EQ(stateLabel(DictationState::recording, mode), QString::fromUtf8("Recording…"));
    mode = CaptureMode::toggle;
    EXPECT_EQ(stateLabel(DictationState::recording, mode), QString::fromUtf8("Listening… (tap to stop)"));
}

TEST(StateLabel, EllipsisIsOneCharacter) {
    const QString label = stateLabel(DictationState::transcribing, CaptureMode::hold);
    EXPECT_EQ(label.size(), 13);
    EXPECT_EQ(label.back(), QChar(0x2026));
}

TEST(ReferenceDate, CountsSecondsFrom2001) {
    const auto epoch2001 = std::chrono::system_clock::time_point(std::chrono::seconds(978307200));
    EXPECT_DOUBLE_EQ(ReferenceDate::seconds(epoch2001), 0.0);
    EXPECT_DOUBLE_EQ(ReferenceDate::seconds(epoch2001 + std::chrono::milliseconds(1500)), 1.5);
    EXPECT_EQ(ReferenceDate::dateTime(0).toString(Qt::ISODate), QStringLiteral("2001-01-01T00:00:00Z"));
    EXPECT_EQ(ReferenceDate::timePoint(1.5), epoch2001 + std::chrono::milliseconds(1500));
}

TEST(Uuid, WritesCanonicalUpperCaseText) {
    const QUuid id = Uuid::create();
    const QString text = Uuid::text(id);
    EXPECT_EQ(text.size(), 36);
    EXPECT_EQ(text, text.toUpper());
    EXPECT_EQ(Uuid::parse(text), id);
}

TEST(Uuid, ParsesOnlyTheHyphenatedForm) {
    EXPECT_TRUE(Uuid::parse(QStringLiteral("e621e1f8-c36c-495a-93fc-0c247a3e6e5f")).has_value());
    EXPECT_FALSE(Uuid::parse(QStringLiteral("{E621E1F8-C36C-495A-93FC-0C247A3E6E5F}")).has_value());
    EXPECT_FALSE(Uuid::parse(QStringLiteral("E621E1F8C36C495A93FC0C247A3E6E5F")).has_value());
    EXPECT_FALSE(Uuid::parse(QStringLiteral("G621E1F8-C36C-495A-93FC-0C247A3E6E5F")).has_value());
    EXPECT_FALSE(Uuid::parse(QString()).has_value());
}
