#include "settings/CleanupTab.h"
#include "ControllerHarness.h"
#include "KeyboardReach.h"
#include "RunTask.h"
#include "StandInHttpServer.h"
#include "TabScreenshot.h"
#include "TabTestSupport.h"
#include "cleanup/CleanupSettings.h"
#include "cleanup/KeychainStore.h"
#include "cleanup/LocalModelServer.h"
#include "settings/StatusLabel.h"

#include <QApplication>
#include <QComboBox>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QNetworkAccessManager>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QTest>

#include <gtest/gtest.h>

using namespace murmurly;
using murmurly::testing::child;
using murmurly::testing::ControllerHarness;
using murmurly::testing::shown;
using murmurly::testing::showTab;
using murmurly::testing::StandInHttpServer;
using murmurly::testing::waitUntil;

namespace {

const QString anthropicAccount = QStringLiteral("anthropic-api-key");

class CleanupTabTest : public ::testing::Test {
protected:
    CleanupSettings& settings() { return harness.controller().cleanupSettings(); }

    std::unique_ptr<CleanupTab> makeTab(CleanupProvider provider) {
        settings().setProvider(provider);
        return showTab(std::make_unique<CleanupTab>(harness.controller(), harness.localModel));
    }

    // Chooses a provider the way a keyboard user does: focus the picker, arrow to the entry.
    static void chooseWithKeyboard(QWidget& tab, int index) {
        auto* picker = child<QComboBox>(tab, "cleanupProvider");
        picker->setFocus();
        while (picker->currentIndex() < index)
            QTest::keyClick(picker, Qt::Key_Down);
        while (picker->currentIndex() > index)
            QTest::keyClick(picker, Qt::Key_Up);
    }

    ControllerHarness harness;
};

TEST_F(CleanupTabTest, ProviderPickerListsTheThreeProvidersInOrderAndFollowsTheStore) {
    auto tab = makeTab(CleanupProvider::anthropic);
    auto* picker = child<QComboBox>(*tab, "cleanupProvider");
    ASSERT_EQ(picker->count(), 3);
    EXPECT_EQ(picker->itemText(0), QStringLiteral("On-Device (local)"));
    EXPECT_EQ(picker->itemText(1), QStringLiteral("Claude (Anthropic)"));
    EXPECT_EQ(picker->itemText(2), QStringLiteral("OpenAI-compatible"));
    EXPECT_EQ(picker->currentIndex(), 1);
    EXPECT_EQ(picker->accessibleName(), QStringLiteral("Cleanup provider"));

    chooseWithKeyboard(*tab, 2);
    EXPECT_EQ(settings().provider(), CleanupProvider::openAICompatible);
    EXPECT_EQ(harness.defaults.stringValue(CleanupSettings::providerKey), QStringLiteral("openAICompatible"));

    // A change made elsewhere shows at once.
    settings().setProvider(CleanupProvider::onDevice);
    EXPECT_EQ(picker->currentIndex(), 0);
}

TEST_F(CleanupTabTest, OnDeviceWithoutModelServerShowsTheReasonInRedAndTestSaysNotConfigured) {
    harness.localModel.state = LocalLanguageModel::Availability::serverUnreachable;
    auto tab = makeTab(CleanupProvider::onDevice);
    auto* status = child<StatusLabel>(*tab, "localModelStatus");
    EXPECT_TRUE(shown(*tab, status));
    EXPECT_EQ(status->text(), QStringLiteral("No local model server answered at http://127.0.0.1:11434/v1."));
    EXPECT_EQ(status->kind(), StatusLabel::Kind::failure);
    EXPECT_EQ(StatusLabel::colorFor(status->kind(), status->palette()), QColor(0xd0, 0x30, 0x2f));

    QTest::mouseClick(child<QPushButton>(*tab, "testCleanup"), Qt::LeftButton);
    auto* result = child<StatusLabel>(*tab, "testResult");
    EXPECT_EQ(tab->testState(), CleanupTab::TestState::failed);
    EXPECT_TRUE(shown(*tab, result));
    EXPECT_EQ(result->text(), QStringLiteral("Not configured (missing key or unavailable)."));
    EXPECT_EQ(result->kind(), StatusLabel::Kind::failure);
}

TEST_F(CleanupTabTest, OnDeviceWithServerListingNoModelSaysSo) {
    harness.localModel.state = LocalLanguageModel::Availability::noModel;
    auto tab = makeTab(CleanupProvider::onDevice);
    EXPECT_EQ(child<StatusLabel>(*tab, "localModelStatus")->text(),
              QStringLiteral("The local model server lists no model."));
}

TEST_F(CleanupTabTest, OnDeviceAvailableShowsItInGreenWithoutKeyOrConfigurationSections) {
    auto tab = makeTab(CleanupProvider::onDevice);
    auto* status = child<StatusLabel>(*tab, "localModelStatus");
    EXPECT_EQ(status->text(), QStringLiteral("On-device model is available. No API key or network needed."));
    EXPECT_EQ(status->kind(), StatusLabel::Kind::success);
    EXPECT_FALSE(shown(*tab, child<QLineEdit>(*tab, "keyEntry")));
    EXPECT_FALSE(shown(*tab, child<QLineEdit>(*tab, "baseURL")));
}

TEST_F(CleanupTabTest, CheckAgainAsksTheModelAndRedrawsItsState) {
    harness.localModel.state = LocalLanguageModel::Availability::serverUnreachable;
    auto tab = makeTab(CleanupProvider::onDevice);
    const int before = harness.localModel.refreshes;
    harness.localModel.state = LocalLanguageModel::Availability::available;
    QTest::mouseClick(child<QPushButton>(*tab, "checkAgain"), Qt::LeftButton);
    EXPECT_EQ(harness.localModel.refreshes, before + 1);
    EXPECT_EQ(child<StatusLabel>(*tab, "localModelStatus")->kind(), StatusLabel::Kind::success);
}

TEST_F(CleanupTabTest, TypingOnlySpacesLeavesSaveKeyDisabled) {
    auto tab = makeTab(CleanupProvider::anthropic);
    auto* save = child<QPushButton>(*tab, "saveKey");
    auto* entry = child<QLineEdit>(*tab, "keyEntry");
    EXPECT_FALSE(save->isEnabled());
    QTest::keyClicks(entry, QStringLiteral("   "));
    EXPECT_EQ(entry->text(), QStringLiteral("   "));
    EXPECT_FALSE(save->isEnabled());
    QTest::keyClick(entry, Qt::Key_Return);
    EXPECT_TRUE(harness.secrets.items.isEmpty());
    QTest::keyClicks(entry, QStringLiteral("k"));
    EXPECT_TRUE(save->isEnabled());
}

TEST_F(CleanupTabTest, SavingAKeyWithSurroundingSpacesStoresItTrimmedAndShowsTheStoredLine) {
    auto tab = makeTab(CleanupProvider::anthropic);
    auto* entry = child<QLineEdit>(*tab, "keyEntry");
    auto* stored = child<StatusLabel>(*tab, "keyStored");
    auto* clear = child<QPushButton>(*tab, "clearKey");
    EXPECT_FALSE(shown(*tab, stored));
    EXPECT_FALSE(shown(*tab, clear));
    EXPECT_EQ(entry->placeholderText(), QStringLiteral("Paste your API key"));
    EXPECT_EQ(entry->echoMode(), QLineEdit::Password);

    QTest::keyClicks(entry, QStringLiteral("  sk-ant-123 \t"));
    QTest::mouseClick(child<QPushButton>(*tab, "saveKey"), Qt::LeftButton);

    EXPECT_EQ(harness.controller().keychain().value(anthropicAccount), QStringLiteral("sk-ant-123"));
    EXPECT_EQ(harness.secrets.count(KeychainStore::service, anthropicAccount), 1);
    EXPECT_EQ(settings().keyRevision(), 1);
    EXPECT_TRUE(entry->text().isEmpty());
    EXPECT_TRUE(shown(*tab, stored));
    EXPECT_EQ(stored->text(), QStringLiteral("A key is stored in your login keyring."));
    EXPECT_EQ(stored->kind(), StatusLabel::Kind::key);
    EXPECT_TRUE(shown(*tab, clear));
    EXPECT_EQ(entry->placeholderText(), QStringLiteral("Enter a new key to replace it"));
    EXPECT_FALSE(child<QPushButton>(*tab, "saveKey")->isEnabled());
}

// The keyring may sit behind an unlock prompt: the tab reads it only bounded, for its key line
// and for a test of the provider alike.
TEST_F(CleanupTabTest, TheKeyringIsReadOnlyBoundedForTheKeyLineAndTheTest) {
    harness.controller().keychain().set(QStringLiteral("sk-ant-123"), anthropicAccount);
    harness.secrets.unboundedReads = 0;
    auto tab = makeTab(CleanupProvider::anthropic);
    EXPECT_TRUE(shown(*tab, child<StatusLabel>(*tab, "keyStored")));
    QTest::mouseClick(child<QPushButton>(*tab, "testCleanup"), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return tab->testState() != CleanupTab::TestState::running; }));
    EXPECT_GE(harness.secrets.boundedReads, 2);
    EXPECT_EQ(harness.secrets.unboundedReads, 0);
}

TEST_F(CleanupTabTest, EnterInTheKeyFieldSavesAndASecondSaveReplacesTheKey) {
    auto tab = makeTab(CleanupProvider::anthropic);
    auto* entry = child<QLineEdit>(*tab, "keyEntry");
    QTest::keyClicks(entry, QStringLiteral("first"));
    QTest::keyClick(entry, Qt::Key_Return);
    QTest::keyClicks(entry, QStringLiteral("second"));
    QTest::keyClick(entry, Qt::Key_Return);
    EXPECT_EQ(harness.secrets.count(KeychainStore::service, anthropicAccount), 1);
    EXPECT_EQ(harness.controller().keychain().value(anthropicAccount), QStringLiteral("second"));
    EXPECT_EQ(settings().keyRevision(), 2);
}

TEST_F(CleanupTabTest, ClearKeyRemovesTheKeyAndTheStoredLine) {
    harness.controller().keychain().set(QStringLiteral("old"), anthropicAccount);
    auto tab = makeTab(CleanupProvider::anthropic);
    auto* clear = child<QPushButton>(*tab, "clearKey");
    ASSERT_TRUE(shown(*tab, clear));
    QTest::mouseClick(clear, Qt::LeftButton);
    EXPECT_FALSE(harness.controller().keychain().value(anthropicAccount).has_value());
    EXPECT_EQ(settings().keyRevision(), 1);
    EXPECT_FALSE(shown(*tab, child<StatusLabel>(*tab, "keyStored")));
    EXPECT_FALSE(shown(*tab, clear));
    EXPECT_EQ(child<QLineEdit>(*tab, "keyEntry")->placeholderText(), QStringLiteral("Paste your API key"));
}

TEST_F(CleanupTabTest, StoredLineFollowsTheProviderShown) {
    harness.controller().keychain().set(QStringLiteral("k"), anthropicAccount);
    auto tab = makeTab(CleanupProvider::anthropic);
    auto* stored = child<StatusLabel>(*tab, "keyStored");
    EXPECT_TRUE(shown(*tab, stored));
    chooseWithKeyboard(*tab, 2);
    EXPECT_FALSE(shown(*tab, stored));
}

TEST_F(CleanupTabTest, SwitchingFromAnthropicToOpenAIClearsTheHalfTypedKeyAndTestResultAndShowsBaseURL) {
    auto tab = makeTab(CleanupProvider::anthropic);
    auto* entry = child<QLineEdit>(*tab, "keyEntry");
    auto* result = child<StatusLabel>(*tab, "testResult");
    QTest::keyClicks(entry, QStringLiteral("sk-half"));
    QTest::mouseClick(child<QPushButton>(*tab, "testCleanup"), Qt::LeftButton);
    ASSERT_EQ(tab->testState(), CleanupTab::TestState::failed);
    ASSERT_TRUE(shown(*tab, result));

    chooseWithKeyboard(*tab, 2);

    EXPECT_TRUE(entry->text().isEmpty());
    EXPECT_EQ(tab->testState(), CleanupTab::TestState::idle);
    EXPECT_FALSE(shown(*tab, result));
    auto* baseURL = child<QLineEdit>(*tab, "baseURL");
    EXPECT_TRUE(shown(*tab, baseURL));
    EXPECT_EQ(baseURL->text(), QStringLiteral("https://api.openai.com/v1"));
    EXPECT_EQ(child<QLabel>(*tab, "model")->text(), QStringLiteral("gpt-4o-mini"));
}

TEST_F(CleanupTabTest, TheBaseURLFieldIsAbsentForAnthropic) {
    auto tab = makeTab(CleanupProvider::anthropic);
    EXPECT_FALSE(shown(*tab, child<QLineEdit>(*tab, "baseURL")));
    EXPECT_EQ(child<QLabel>(*tab, "model")->text(), QStringLiteral("claude-haiku-4-5"));
    EXPECT_TRUE(shown(*tab, child<QLineEdit>(*tab, "keyEntry")));
}

TEST_F(CleanupTabTest, EveryEditOfTheBaseURLIsStoredAtOnce) {
    auto tab = makeTab(CleanupProvider::openAICompatible);
    auto* baseURL = child<QLineEdit>(*tab, "baseURL");
    baseURL->setFocus();
    baseURL->selectAll();
    QTest::keyClick(baseURL, Qt::Key_Backspace);
    EXPECT_EQ(settings().openAIBaseURL(), QString());
    EXPECT_EQ(harness.defaults.stringValue(CleanupSettings::openAIBaseURLKey), QString());
    QTest::keyClicks(baseURL, QStringLiteral("http://h"));
    EXPECT_EQ(settings().openAIBaseURL(), QStringLiteral("http://h"));
    EXPECT_EQ(harness.defaults.stringValue(CleanupSettings::openAIBaseURLKey), QStringLiteral("http://h"));
    // And a change made elsewhere shows in the field.
    settings().setOpenAIBaseURL(QStringLiteral("http://other/v1"));
    EXPECT_EQ(baseURL->text(), QStringLiteral("http://other/v1"));
}

TEST_F(CleanupTabTest, WithoutASecretServiceTheTabSaysWhyKeysCannotBeStored) {
    harness.secrets.available = false;
    auto tab = makeTab(CleanupProvider::anthropic);
    auto* warning = child<StatusLabel>(*tab, "keyringUnavailable");
    EXPECT_TRUE(shown(*tab, warning));
    EXPECT_EQ(warning->text(),
              QStringLiteral("No Secret Service is running, so keys cannot be stored. Start your "
                             "desktop's keyring (for example GNOME Keyring)."));
    EXPECT_FALSE(child<QLineEdit>(*tab, "keyEntry")->isEnabled());
    EXPECT_FALSE(child<QPushButton>(*tab, "saveKey")->isEnabled());

    harness.secrets.available = true;
    auto withService = makeTab(CleanupProvider::anthropic);
    EXPECT_FALSE(shown(*withService, child<StatusLabel>(*withService, "keyringUnavailable")));
}

TEST_F(CleanupTabTest, TestCleanupShowsTheCleanedTextOfTheSampleInGreen) {
    harness.localModel.next = {QStringLiteral("So this is a quick test of the cleanup."), {}};
    auto tab = makeTab(CleanupProvider::onDevice);
    QTest::mouseClick(child<QPushButton>(*tab, "testCleanup"), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return tab->testState() == CleanupTab::TestState::ok; }));
    auto* result = child<StatusLabel>(*tab, "testResult");
    EXPECT_EQ(result->text(), QStringLiteral("So this is a quick test of the cleanup."));
    EXPECT_EQ(result->kind(), StatusLabel::Kind::success);
    ASSERT_EQ(harness.localModel.userTurnsSeen.size(), 1);
    EXPECT_TRUE(harness.localModel.userTurnsSeen.first().contains(CleanupTab::testSample));
    EXPECT_TRUE(child<QPushButton>(*tab, "testCleanup")->isEnabled());
}

TEST_F(CleanupTabTest, AFailedTestCallSaysToCheckKeyModelAndURL) {
    harness.localModel.next = {std::nullopt, QStringLiteral("the model refused")};
    auto tab = makeTab(CleanupProvider::onDevice);
    QTest::mouseClick(child<QPushButton>(*tab, "testCleanup"), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return tab->testState() == CleanupTab::TestState::failed; }));
    EXPECT_EQ(child<StatusLabel>(*tab, "testResult")->text(),
              QStringLiteral("Cleanup call failed. Check the key, model, and URL."));
}

TEST_F(CleanupTabTest, WhileATestRunsItsButtonIsDisabledAndAProgressIndicatorShows) {
    StandInHttpServer server;
    ASSERT_TRUE(server.start());
    StandInHttpServer::Response slow;
    slow.delayMilliseconds = 400;
    slow.body = R"({"choices":[{"message":{"content":"{\"cleaned_text\":\"Quick test.\"}"}}],)"
                R"("usage":{"prompt_tokens":1,"completion_tokens":1}})";
    server.setResponse(slow);
    harness.controller().keychain().set(QStringLiteral("sk-test"),
                                        QStringLiteral("openai-compatible-api-key"));
    settings().setOpenAIBaseURL(server.url(QStringLiteral("/v1")));
    auto tab = makeTab(CleanupProvider::openAICompatible);
    auto* button = child<QPushButton>(*tab, "testCleanup");
    auto* progress = child<QProgressBar>(*tab, "testProgress");
    EXPECT_FALSE(shown(*tab, progress));

    QTest::mouseClick(button, Qt::LeftButton);
    EXPECT_EQ(tab->testState(), CleanupTab::TestState::running);
    EXPECT_FALSE(button->isEnabled());
    EXPECT_TRUE(shown(*tab, progress));
    QTest::mouseClick(button, Qt::LeftButton); // a second press does nothing

    ASSERT_TRUE(waitUntil([&] { return tab->testState() != CleanupTab::TestState::running; }));
    EXPECT_EQ(tab->testState(), CleanupTab::TestState::ok);
    EXPECT_EQ(child<StatusLabel>(*tab, "testResult")->text(), QStringLiteral("Quick test."));
    EXPECT_TRUE(button->isEnabled());
    EXPECT_FALSE(shown(*tab, progress));
    EXPECT_EQ(server.requests().size(), 1);
    EXPECT_EQ(server.requests().first().path, QByteArray("/v1/chat/completions"));
}

TEST_F(CleanupTabTest, TheLocalServerFieldsAreStoredAndTheStatusFollowsTheServer) {
    StandInHttpServer server;
    ASSERT_TRUE(server.start());
    server.setJsonResponse(200, R"({"data":[{"id":"llama3.2"},{"id":"qwen2.5"}]})");
    QNetworkAccessManager network;
    LocalModelServer local(harness.defaults, network);
    settings().setProvider(CleanupProvider::onDevice);
    CleanupTab tab(harness.controller(), local);
    tab.resize(murmurly::testing::tabAreaSize);
    tab.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&tab));

    auto* url = child<QLineEdit>(tab, "localServerURL");
    auto* model = child<QComboBox>(tab, "localModel");
    auto* status = child<StatusLabel>(tab, "localModelStatus");
    EXPECT_TRUE(shown(tab, url));
    EXPECT_EQ(url->accessibleName(), QStringLiteral("Server URL"));

    url->setFocus();
    url->selectAll();
    QTest::keyClicks(url, server.url(QStringLiteral("/v1")));
    EXPECT_EQ(harness.defaults.stringValue(LocalModelServer::baseURLKey), server.url(QStringLiteral("/v1")));
    ASSERT_TRUE(waitUntil([&] { return status->kind() == StatusLabel::Kind::success; }));
    EXPECT_EQ(status->text(), QStringLiteral("On-device model is available. No API key or network needed."));
    ASSERT_EQ(model->count(), 2);
    EXPECT_EQ(model->itemText(0), QStringLiteral("llama3.2"));
    EXPECT_TRUE(model->currentText().isEmpty());

    model->setFocus();
    QTest::keyClicks(model->lineEdit(), QStringLiteral("mistral"));
    EXPECT_EQ(harness.defaults.stringValue(LocalModelServer::modelKey), QStringLiteral("mistral"));
    ASSERT_TRUE(waitUntil([&] { return local.availability() == LocalLanguageModel::Availability::noModel; }));
    EXPECT_EQ(status->text(), QStringLiteral("The local model server lists no model."));
    EXPECT_EQ(status->kind(), StatusLabel::Kind::failure);
    EXPECT_EQ(model->currentText(), QStringLiteral("mistral"));

    const QString closed = QStringLiteral("http://127.0.0.1:1/v1");
    url->selectAll();
    QTest::keyClicks(url, closed);
    ASSERT_TRUE(waitUntil(
        [&] { return local.availability() == LocalLanguageModel::Availability::serverUnreachable; }));
    EXPECT_EQ(status->text(),
              QStringLiteral("No local model server answered at ") + closed + QStringLiteral("."));
}

TEST_F(CleanupTabTest, EveryProviderFitsTheSmallestWindowWithoutScrolling) {
    harness.controller().keychain().set(QStringLiteral("k"), anthropicAccount);
    harness.controller().keychain().set(QStringLiteral("k"), QStringLiteral("openai-compatible-api-key"));
    harness.localModel.state = LocalLanguageModel::Availability::serverUnreachable;
    for (const CleanupProvider provider : CleanupProviders::allCases) {
        SCOPED_TRACE(CleanupProviders::rawValue(provider).toStdString());
        auto tab = makeTab(provider);
        // The tallest state: a key stored (its line and Clear Key shown) and a test outcome shown.
        harness.localModel.next = {std::nullopt, QStringLiteral("no")};
        QTest::mouseClick(child<QPushButton>(*tab, "testCleanup"), Qt::LeftButton);
        ASSERT_TRUE(waitUntil([&] { return tab->testState() == CleanupTab::TestState::failed; }));
        QApplication::processEvents();
        auto* scroll = tab->findChild<QScrollArea*>();
        ASSERT_NE(scroll, nullptr);
        EXPECT_FALSE(scroll->verticalScrollBar()->isVisible())
            << "content " << scroll->widget()->sizeHint().height() << " px in "
            << scroll->viewport()->height();
    }
}

TEST_F(CleanupTabTest, Screenshots) {
    using murmurly::testing::areaIn;
    using murmurly::testing::picturesSomethingIn;
    harness.controller().keychain().set(QStringLiteral("k"), anthropicAccount);
    settings().setProvider(CleanupProvider::anthropic);
    CleanupTab tab(harness.controller(), harness.localModel);
    const QString path = murmurly::testing::saveTabScreenshot(tab, QStringLiteral("cleanup-tab-anthropic"));
    ASSERT_FALSE(path.isEmpty());
    EXPECT_EQ(QImage(path).size(), murmurly::testing::tabAreaSize);
    // What the picture shows: the chosen provider and the stored key's line, drawn where they lie.
    auto* provider = child<QComboBox>(tab, "cleanupProvider");
    EXPECT_EQ(provider->currentText(), CleanupProviders::displayName(CleanupProvider::anthropic));
    EXPECT_TRUE(picturesSomethingIn(path, areaIn(tab, *provider)));
    auto* stored = child<StatusLabel>(tab, "keyStored");
    ASSERT_TRUE(shown(tab, stored));
    EXPECT_EQ(stored->text(), QStringLiteral("A key is stored in your login keyring."));
    EXPECT_TRUE(picturesSomethingIn(path, areaIn(tab, *stored)));

    // With no key stored, and the outcome of a test shown.
    settings().setProvider(CleanupProvider::openAICompatible);
    CleanupTab openAI(harness.controller(), harness.localModel);
    openAI.resize(murmurly::testing::tabAreaSize);
    QTest::mouseClick(openAI.findChild<QPushButton*>(QStringLiteral("testCleanup")), Qt::LeftButton);
    ASSERT_EQ(openAI.testState(), CleanupTab::TestState::failed);
    const QString openAIPath =
        murmurly::testing::saveTabScreenshot(openAI, QStringLiteral("cleanup-tab-openai"));
    ASSERT_FALSE(openAIPath.isEmpty());
    EXPECT_EQ(QImage(openAIPath).size(), murmurly::testing::tabAreaSize);
    auto* result = child<StatusLabel>(openAI, "testResult");
    ASSERT_TRUE(shown(openAI, result));
    EXPECT_FALSE(result->text().isEmpty());
    EXPECT_TRUE(picturesSomethingIn(openAIPath, areaIn(openAI, *result)));
    EXPECT_FALSE(shown(openAI, child<StatusLabel>(openAI, "keyStored")));

    QNetworkAccessManager network;
    LocalModelServer local(harness.defaults, network);
    settings().setProvider(CleanupProvider::onDevice);
    CleanupTab onDevice(harness.controller(), local);
    ASSERT_TRUE(
        waitUntil([&] { return local.availability() != LocalLanguageModel::Availability::unchecked; }));
    const QString localPath =
        murmurly::testing::saveTabScreenshot(onDevice, QStringLiteral("cleanup-tab-local"));
    ASSERT_FALSE(localPath.isEmpty());
    EXPECT_EQ(QImage(localPath).size(), murmurly::testing::tabAreaSize);
    auto* status = child<StatusLabel>(onDevice, "localModelStatus");
    ASSERT_TRUE(shown(onDevice, status));
    EXPECT_FALSE(status->text().isEmpty());
    EXPECT_TRUE(picturesSomethingIn(localPath, areaIn(onDevice, *status)));
}

TEST_F(CleanupTabTest, EveryControlHasAnAccessibleNameAndTabReachesIt) {
    harness.controller().keychain().set(QStringLiteral("k"), anthropicAccount);
    for (const CleanupProvider provider : CleanupProviders::allCases) {
        SCOPED_TRACE(CleanupProviders::rawValue(provider).toStdString());
        auto tab = makeTab(provider);
        QTest::keyClicks(child<QLineEdit>(*tab, "keyEntry"), QStringLiteral("typed"));
        murmurly::testing::expectKeyboardAndNames(*tab);
    }
    // With the local model server's own fields.
    QNetworkAccessManager network;
    LocalModelServer local(harness.defaults, network);
    settings().setProvider(CleanupProvider::onDevice);
    CleanupTab tab(harness.controller(), local);
    tab.resize(murmurly::testing::tabAreaSize);
    tab.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&tab));
    murmurly::testing::expectKeyboardAndNames(tab);
}

} // namespace
