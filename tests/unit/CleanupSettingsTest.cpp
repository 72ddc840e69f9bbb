#include "cleanup/CleanupSettings.h"
#include "FakeLocalLanguageModel.h"
#include "MemoryDefaults.h"
#include "MemorySecretStore.h"
#include "RunTask.h"
#include "cleanup/AnthropicTransformer.h"
#include "cleanup/KeychainStore.h"
#include "cleanup/OnDeviceTransformer.h"
#include "cleanup/OpenAICompatibleTransformer.h"

#include <QNetworkAccessManager>
#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace murmurly;
using murmurly::testing::FakeLocalLanguageModel;
using murmurly::testing::MemoryDefaults;
using murmurly::testing::MemorySecretStore;
using Availability = LocalLanguageModel::Availability;

namespace {
const QString anthropicAccount = QStringLiteral("anthropic-api-key");
const QString openAIAccount = QStringLiteral("openai-compatible-api-key");
} // namespace

class CleanupSettingsTest : public ::testing::Test {
protected:
    std::unique_ptr<CleanupSettings> make() {
        return std::make_unique<CleanupSettings>(defaults, keys, localModel, network);
    }

    MemoryDefaults defaults;
    MemorySecretStore secrets;
    KeychainStore keys{secrets};
    FakeLocalLanguageModel localModel;
    QNetworkAccessManager network;
};

TEST_F(CleanupSettingsTest, WithNoDefaultsStoredTheProviderIsOnDeviceAndTheBaseUrlTheOpenAIDefault) {
    auto settings = make();
    EXPECT_EQ(settings->provider(), CleanupProvider::onDevice);
    EXPECT_EQ(settings->openAIBaseURL(), QStringLiteral("https://api.openai.com/v1"));
    EXPECT_EQ(settings->keyRevision(), 0);
    EXPECT_EQ(defaults.writeCount(), 0); // reading writes nothing
}

TEST_F(CleanupSettingsTest, StoredProviderStringsAreMatchedAgainstRawValuesAndAnythingElseIsOnDevice) {
    const std::pair<QString, CleanupProvider> cases[] = {
        {QStringLiteral("anthropic"), CleanupProvider::anthropic},
        {QStringLiteral("openAICompatible"), CleanupProvider::openAICompatible},
        {QStringLiteral("onDevice"), CleanupProvider::onDevice},
        {QStringLiteral("Anthropic"), CleanupProvider::onDevice},
        {QStringLiteral("openai"), CleanupProvider::onDevice},
        {QString(), CleanupProvider::onDevice},
    };
    for (const auto& [stored, expected] : cases) {
        defaults.setString(CleanupSettings::providerKey, stored);
        EXPECT_EQ(make()->provider(), expected) << stored.toStdString();
    }
    defaults.setInt(CleanupSettings::providerKey, 7);
    EXPECT_EQ(make()->provider(), CleanupProvider::onDevice);
}

TEST_F(CleanupSettingsTest, StoredBaseUrlIsReadAsTyped) {
    defaults.setString(CleanupSettings::openAIBaseURLKey, QStringLiteral("http://localhost:8080/v1/"));
    EXPECT_EQ(make()->openAIBaseURL(), QStringLiteral("http://localhost:8080/v1/"));
}

TEST_F(CleanupSettingsTest, EveryAssignmentWritesBothKeys) {
    auto settings = make();
    QSignalSpy providerChanged(settings.get(), &CleanupSettings::providerChanged);
    settings->setProvider(CleanupProvider::anthropic);
    EXPECT_EQ(defaults.writeCount(), 2);
    EXPECT_EQ(defaults.stringValue(CleanupSettings::providerKey), QStringLiteral("anthropic"));
    EXPECT_EQ(defaults.stringValue(CleanupSettings::openAIBaseURLKey),
              QStringLiteral("https://api.openai.com/v1"));
    settings->setProvider(CleanupProvider::anthropic); // same value: still written, no change signal
    EXPECT_EQ(defaults.writeCount(), 4);
    EXPECT_EQ(providerChanged.count(), 1);
    settings->setOpenAIBaseURL(QStringLiteral("http://127.0.0.1:1234/v1"));
    EXPECT_EQ(defaults.writeCount(), 6);
    EXPECT_EQ(defaults.stringValue(CleanupSettings::openAIBaseURLKey),
              QStringLiteral("http://127.0.0.1:1234/v1"));
    EXPECT_EQ(make()->provider(), CleanupProvider::anthropic); // survives a relaunch
}

TEST_F(CleanupSettingsTest, EmptyBaseUrlIsStoredEmptyButTheFactoryUsesTheDefault) {
    ASSERT_TRUE(keys.set(QStringLiteral("sk-openai"), openAIAccount));
    auto settings = make();
    settings->setProvider(CleanupProvider::openAICompatible);
    settings->setOpenAIBaseURL(QString());
    EXPECT_EQ(defaults.stringValue(CleanupSettings::openAIBaseURLKey), QString());
    EXPECT_TRUE(make()->openAIBaseURL().isEmpty()); // a stored empty string stays empty
    const auto transformer = settings->makeTransformer();
    const auto* openAI = dynamic_cast<const OpenAICompatibleTransformer*>(transformer.get());
    ASSERT_NE(openAI, nullptr);
    EXPECT_EQ(openAI->baseURL(), QStringLiteral("https://api.openai.com/v1"));
    EXPECT_EQ(openAI->apiKey(), QStringLiteral("sk-openai"));
    EXPECT_EQ(openAI->model(), QStringLiteral("gpt-4o-mini"));
    EXPECT_TRUE(settings->openAIBaseURL().isEmpty());
}

TEST_F(CleanupSettingsTest, OpenAITransformerGetsTheTypedBaseUrl) {
    ASSERT_TRUE(keys.set(QStringLiteral("k"), openAIAccount));
    auto settings = make();
    settings->setProvider(CleanupProvider::openAICompatible);
    settings->setOpenAIBaseURL(QStringLiteral("http://localhost:8080/v1/"));
    const auto transformer = settings->makeTransformer();
    const auto* openAI = dynamic_cast<const OpenAICompatibleTransformer*>(transformer.get());
    ASSERT_NE(openAI, nullptr);
    EXPECT_EQ(openAI->baseURL(), QStringLiteral("http://localhost:8080/v1/"));
}

TEST_F(CleanupSettingsTest, StoredKeyOfOneSpaceIsReturnedAndYieldsATransformer) {
    ASSERT_TRUE(keys.set(QStringLiteral(" "), anthropicAccount));
    EXPECT_EQ(keys.value(anthropicAccount), QStringLiteral(" "));
    auto settings = make();
    settings->setProvider(CleanupProvider::anthropic);
    const auto transformer = settings->makeTransformer();
    const auto* anthropic = dynamic_cast<const AnthropicTransformer*>(transformer.get());
    ASSERT_NE(anthropic, nullptr);
    EXPECT_EQ(anthropic->apiKey(), QStringLiteral(" "));
    EXPECT_EQ(anthropic->model(), QStringLiteral("claude-haiku-4-5"));
}

TEST_F(CleanupSettingsTest, WithoutAStoredKeyTheHttpProvidersHaveNoTransformer) {
    auto settings = make();
    settings->setProvider(CleanupProvider::anthropic);
    EXPECT_EQ(settings->makeTransformer(), nullptr);
    settings->setProvider(CleanupProvider::openAICompatible);
    EXPECT_EQ(settings->makeTransformer(), nullptr);
    ASSERT_TRUE(keys.set(QStringLiteral("k"), anthropicAccount)); // the other provider's key does not count
    EXPECT_EQ(settings->makeTransformer(), nullptr);
}

TEST_F(CleanupSettingsTest, TheKeyStoreIsReadAfreshOnEveryCall) {
    auto settings = make();
    settings->setProvider(CleanupProvider::anthropic);
    EXPECT_EQ(settings->makeTransformer(), nullptr);
    ASSERT_TRUE(keys.set(QStringLiteral("first"), anthropicAccount));
    auto transformer = settings->makeTransformer();
    ASSERT_NE(transformer, nullptr);
    EXPECT_EQ(dynamic_cast<AnthropicTransformer&>(*transformer).apiKey(), QStringLiteral("first"));
    ASSERT_TRUE(keys.set(QStringLiteral("second"), anthropicAccount));
    transformer = settings->makeTransformer();
    EXPECT_EQ(dynamic_cast<AnthropicTransformer&>(*transformer).apiKey(), QStringLiteral("second"));
    keys.remove(anthropicAccount);
    EXPECT_EQ(settings->makeTransformer(), nullptr);
}

TEST_F(CleanupSettingsTest, OnDeviceWithTheModelNotReadyYieldsNoTransformer) {
    auto settings = make();
    for (const Availability state :
         {Availability::noModel, Availability::serverUnreachable, Availability::unchecked}) {
        localModel.state = state;
        EXPECT_EQ(settings->makeTransformer(), nullptr);
    }
    localModel.state = Availability::available;
    const auto transformer = settings->makeTransformer();
    EXPECT_NE(dynamic_cast<const OnDeviceTransformer*>(transformer.get()), nullptr);
}

TEST_F(CleanupSettingsTest, KeyRevisionStartsAtZeroStepsByOneAndIsNeverStored) {
    auto settings = make();
    QSignalSpy changed(settings.get(), &CleanupSettings::keyRevisionChanged);
    settings->bumpKeyRevision();
    settings->bumpKeyRevision();
    EXPECT_EQ(settings->keyRevision(), 2);
    EXPECT_EQ(changed.count(), 2);
    EXPECT_EQ(defaults.writeCount(), 0);
    EXPECT_EQ(make()->keyRevision(), 0);
}

TEST_F(CleanupSettingsTest, PublishedValuesAreQtProperties) {
    auto settings = make();
    settings->setProperty("openAIBaseURL", QStringLiteral("http://x.test/v1"));
    EXPECT_EQ(settings->openAIBaseURL(), QStringLiteral("http://x.test/v1"));
    EXPECT_EQ(settings->property("keyRevision").toLongLong(), 0);
    settings->setProvider(CleanupProvider::openAICompatible);
    EXPECT_EQ(settings->property("provider").value<CleanupProvider>(), CleanupProvider::openAICompatible);
}

TEST_F(CleanupSettingsTest, ForADictationTheLocalModelIsAskedAgainNotTakenFromTheLastAnswer) {
    auto settings = make();
    localModel.state = LocalLanguageModel::Availability::serverUnreachable;
    localModel.foundOnCheck = LocalLanguageModel::Availability::available;
    EXPECT_FALSE(settings->makeTransformer()); // the last answer
    auto made = murmurly::testing::runBounded(settings->makeTransformerNow(std::chrono::seconds(5)));
    ASSERT_TRUE(made.finished);
    EXPECT_TRUE(*made.value);
    EXPECT_EQ(localModel.checks, 1);

    localModel.foundOnCheck = LocalLanguageModel::Availability::noModel;
    made = murmurly::testing::runBounded(settings->makeTransformerNow(std::chrono::seconds(5)));
    ASSERT_TRUE(made.finished);
    EXPECT_FALSE(*made.value);
    EXPECT_EQ(localModel.checks, 2);
}

TEST_F(CleanupSettingsTest, ForADictationTheKeyIsReadAsTheFactoryReadsIt) {
    auto settings = make();
    settings->setProvider(CleanupProvider::anthropic);
    auto made = murmurly::testing::runBounded(settings->makeTransformerNow(std::chrono::seconds(5)));
    ASSERT_TRUE(made.finished);
    EXPECT_FALSE(*made.value);
    ASSERT_TRUE(keys.set(QStringLiteral("sk-ant"), QStringLiteral("anthropic-api-key")));
    made = murmurly::testing::runBounded(settings->makeTransformerNow(std::chrono::seconds(5)));
    ASSERT_TRUE(made.finished);
    auto* anthropic = dynamic_cast<AnthropicTransformer*>(made.value->get());
    ASSERT_NE(anthropic, nullptr);
    EXPECT_EQ(anthropic->apiKey(), QStringLiteral("sk-ant"));
}
