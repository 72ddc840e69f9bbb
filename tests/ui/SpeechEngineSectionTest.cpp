// The General tab's "Speech engine" section, driven with the mouse and keyboard on the test's X
// server, against a stand-in transcription server.
#include "MultipartForm.h"
#include "SettingsFixture.h"
#include "StandInHttpServer.h"
#include "WaitUntil.h"

#include "cleanup/KeychainStore.h"
#include "settings/SpeechEngineSection.h"
#include "speech/TranscriptionSettings.h"
#include "speech/WavFile.h"

#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

using namespace murmurly;
using namespace murmurly::uitest;
using namespace std::chrono_literals;
using murmurly::testing::ControllerHarness;
using murmurly::testing::MultipartForm;
using murmurly::testing::StandInHttpServer;

namespace {

struct SectionFixture : SettingsFixture {
    explicit SectionFixture(ControllerHarness& harness)
        : SettingsFixture(harness)
        , section(*general->speechEngineSection()) {
        show(SettingsTab::general);
    }

    void chooseServer() {
        QComboBox* box = section.engineBox();
        box->setFocus();
        QTest::keyClick(box, Qt::Key_Down);
        // A closed combo box takes the arrow key as a choice, as a user's would be.
        ASSERT_EQ(box->currentText(), QStringLiteral("Transcription server"));
    }

    void type(QLineEdit* field, const QString& text) {
        field->setFocus();
        field->selectAll();
        QTest::keyClicks(field, text);
    }

    SpeechEngineSection& section;
};

} // namespace

TEST(SpeechEngineSection, OnDeviceIsTheDefaultAndTheServerFieldsWaitForTheServerChoice) {
    ControllerHarness harness;
    SectionFixture f(harness);
    EXPECT_EQ(f.section.engineBox()->currentText(), QStringLiteral("On-device"));
    QStringList options;
    for (int i = 0; i < f.section.engineBox()->count(); ++i)
        options.append(f.section.engineBox()->itemText(i));
    EXPECT_EQ(options, (QStringList{QStringLiteral("On-device"), QStringLiteral("Transcription server")}));
    EXPECT_FALSE(f.section.endpointField()->isEnabled());
    EXPECT_FALSE(f.section.testButton()->isEnabled());
    EXPECT_EQ(f.section.audioDestinationLabel()->text(), SpeechEngineSection::onDeviceLine);
}

TEST(SpeechEngineSection, FieldsWriteThePreferencesAndTheKeyGoesToTheKeyring) {
    ControllerHarness harness;
    SectionFixture f(harness);
    harness.secrets.unboundedReads = 0;
    f.chooseServer();
    EXPECT_EQ(harness.defaults.stringValue(TranscriptionSettings::speechEngineKey), QStringLiteral("server"));
    ASSERT_TRUE(f.section.endpointField()->isEnabled());
    f.type(f.section.endpointField(), QStringLiteral("http://127.0.0.1:8080/inference"));
    EXPECT_EQ(harness.defaults.stringValue(TranscriptionSettings::endpointURLKey),
              QStringLiteral("http://127.0.0.1:8080/inference"));
    f.type(f.section.modelField(), QStringLiteral("whisper-1"));
    EXPECT_EQ(harness.defaults.stringValue(TranscriptionSettings::modelKey), QStringLiteral("whisper-1"));

    EXPECT_EQ(f.section.keyStatusLabel()->text(), SpeechEngineSection::noKeyText);
    f.type(f.section.keyField(), QStringLiteral("sk-abc"));
    QTest::mouseClick(f.section.saveKeyButton(), Qt::LeftButton);
    EXPECT_EQ(harness.secrets.find(KeychainStore::service, TranscriptionSettings::apiKeyAccount),
              QByteArray("sk-abc"));
    EXPECT_TRUE(f.section.keyField()->text().isEmpty());
    EXPECT_EQ(f.section.keyStatusLabel()->text(), SpeechEngineSection::keyStoredText);
    QTest::mouseClick(f.section.removeKeyButton(), Qt::LeftButton);
    EXPECT_EQ(f.section.keyStatusLabel()->text(), SpeechEngineSection::noKeyText);
    // The key line reads the keyring only bounded (a locked keyring must not freeze the window).
    EXPECT_GT(harness.secrets.boundedReads, 0);
    EXPECT_EQ(harness.secrets.unboundedReads, 0);
    EXPECT_FALSE(harness.secrets.find(KeychainStore::service, TranscriptionSettings::apiKeyAccount));
}

TEST(SpeechEngineSection, LineSaysWhereAudioGoesWhenTheEndpointIsNotOnThisComputer) {
    ControllerHarness harness;
    SectionFixture f(harness);
    f.chooseServer();
    f.type(f.section.endpointField(), QStringLiteral("http://localhost:8000/v1/audio/transcriptions"));
    EXPECT_EQ(f.section.audioDestinationLabel()->text(), SpeechEngineSection::localLine);
    f.type(f.section.endpointField(), QStringLiteral("https://api.example.com/v1/audio/transcriptions"));
    EXPECT_EQ(f.section.audioDestinationLabel()->text(),
              SpeechEngineSection::remoteLinePrefix + QStringLiteral("api.example.com."));
    EXPECT_TRUE(f.section.audioDestinationLabel()->isVisible());
}

TEST(SpeechEngineSection, TestSendsOneSecondOfSilenceAndShowsTheAnswer) {
    ControllerHarness harness;
    StandInHttpServer server;
    ASSERT_TRUE(server.start());
    server.setJsonResponse(200, R"({"text":" Thank you. "})");
    SectionFixture f(harness);
    f.chooseServer();
    f.type(f.section.endpointField(), server.url(QStringLiteral("/inference")));
    QTest::mouseClick(f.section.testButton(), Qt::LeftButton);
    ASSERT_TRUE(murmurly::testing::waitUntil(
        [&] { return f.section.testResultLabel()->text().startsWith(QStringLiteral("The server answered")); },
        30s));
    EXPECT_EQ(f.section.testResultLabel()->text(),
              QStringLiteral("The server answered: \u201cThank you.\u201d"));
    EXPECT_TRUE(f.section.testButton()->isEnabled());

    ASSERT_EQ(server.requests().size(), 1);
    const auto& request = server.requests()[0];
    const std::optional<MultipartForm> form = MultipartForm::parse(
        request.body, MultipartForm::boundaryOf(request.header("Content-Type")).value_or(""));
    ASSERT_TRUE(form);
    QString error;
    const std::optional<WavFile> wav = WavFile::parse(form->part("file")->data, error);
    ASSERT_TRUE(wav) << error.toStdString();
    EXPECT_EQ(wav->format(), AudioFormat::int16(16000, 1));
    ASSERT_EQ(wav->frameCount(), 16000);
    const std::int16_t* samples = wav->audio().int16Samples();
    EXPECT_TRUE(std::all_of(samples, samples + 16000, [](std::int16_t s) { return s == 0; }));
}

TEST(SpeechEngineSection, TestShowsTheServersError) {
    ControllerHarness harness;
    StandInHttpServer server;
    ASSERT_TRUE(server.start());
    server.setJsonResponse(401, R"({"error":"bad key"})");
    SectionFixture f(harness);
    f.chooseServer();
    f.type(f.section.endpointField(), server.url(QStringLiteral("/v1/audio/transcriptions")));
    QTest::mouseClick(f.section.testButton(), Qt::LeftButton);
    ASSERT_TRUE(murmurly::testing::waitUntil(
        [&] { return f.section.testResultLabel()->text().startsWith(QStringLiteral("The server failed")); },
        30s));
    EXPECT_EQ(f.section.testResultLabel()->text(),
              QStringLiteral("The server failed: The server answered with status 401."));
    saveScreenshot(f.window.get(), QStringLiteral("settings-general-speech-engine"));
}
