// Cleanup by an OpenAI-compatible provider: a stand-in server on 127.0.0.1 answers chat
// completions, and the key sits in the desktop's keyring (a private gnome-keyring here).
#include "MurmurlyDesktop.h"

#include "PrivateNotificationServer.h"
#include "StandInHttpServer.h"
#include "WaitUntil.h"
#include "app/MenuContent.h"
#include "cleanup/CleanupProvider.h"
#include "cleanup/CleanupSettings.h"
#include "core/AppController.h"
#include "platform/linux/LibsecretStore.h"
#include "records/UsageTracker.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <cstdio>

using namespace murmurly;
using namespace murmurly::testing;
using namespace std::chrono_literals;

namespace {

const QByteArray apiKey = "sk-e2e-0123456789";

class CleanupTest : public MurmurlyDesktopTest {
protected:
    CleanupTest()
        : MurmurlyDesktopTest(SessionBus::withKeyring) {}

    void SetUp() override {
        MurmurlyDesktopTest::SetUp();
        if (HasFatalFailure()) return;
        ASSERT_TRUE(server.start());
        LibsecretStore keys;
        ASSERT_TRUE(keys.isAvailable());
        const auto account = CleanupProviders::keychainAccount(CleanupProvider::openAICompatible);
        ASSERT_TRUE(account.has_value());
        ASSERT_TRUE(keys.add(QStringLiteral("com.qv.murmurly"), *account, apiKey));
        ASSERT_EQ(keyring->countItems(QStringLiteral("com.qv.murmurly"), *account), 1);

        setPreference(AppController::cleanupEnabledKey, true);
        setPreference(CleanupSettings::providerKey,
                      CleanupProviders::rawValue(CleanupProvider::openAICompatible));
        setPreference(CleanupSettings::openAIBaseURLKey, server.url(QStringLiteral("/v1")));
    }

    // The transcript as the program logged it (its log shows transcripts in these tests).
    QString loggedTranscript() const {
        const QRegularExpression line(QStringLiteral("Transcript: ([^\\n]*)"));
        return line.match(program->log()).captured(1).trimmed();
    }

    StandInHttpServer server;
};

} // namespace

TEST_F(CleanupTest, TheCleanedTextIsInsertedAndTheUsageCounted) {
    server.setJsonResponse(200,
                           R"({"choices":[{"index":0,"message":{"role":"assistant","content":)"
                           R"("{\"cleaned_text\":\"Unless being cold-hearted is being ill-disposed.\"}"}}])"
                           R"(,"usage":{"prompt_tokens":250,"completion_tokens":9,"total_tokens":259}})");
    EXPECT_EQ(preference(UsageTracker::allTimeKey), std::nullopt);
    startProgram();

    dictateHolding(sentence("sense_and_sensibility_01_austen_64kb-0890"));
    const QString text = waitForInsertedText();
    ASSERT_FALSE(text.isEmpty()) << program->log().toStdString();
    EXPECT_TRUE(waitForState(QStringLiteral("idle")));
    EXPECT_EQ(text, QStringLiteral("Unless being cold-hearted is being ill-disposed. "));

    // One request, to the chat completions path, with the stored key and the transcript.
    ASSERT_EQ(server.requests().size(), 1);
    const StandInHttpServer::Request& request = server.requests().constFirst();
    EXPECT_EQ(request.method, QByteArray("POST"));
    EXPECT_EQ(request.path, QByteArray("/v1/chat/completions"));
    EXPECT_EQ(request.header("Authorization"), QByteArray("Bearer ") + apiKey);
    const QString transcript = loggedTranscript();
    ASSERT_FALSE(transcript.isEmpty()) << program->log().toStdString();
    EXPECT_TRUE(QString::fromUtf8(request.body).contains(transcript)) << request.body.toStdString();

    // The all-time usage in the settings counts the dictation and its tokens.
    std::optional<QVariant> usage;
    ASSERT_TRUE(waitUntil([&] { return (usage = preference(UsageTracker::allTimeKey)).has_value(); }));
    const QJsonObject allTime = QJsonDocument::fromJson(usage->toByteArray()).object();
    const QJsonObject openAI = allTime.value(QStringLiteral("openAICompatible")).toObject();
    EXPECT_EQ(openAI.value(QStringLiteral("dictations")).toInteger(), 1)
        << usage->toByteArray().toStdString();
    EXPECT_EQ(openAI.value(QStringLiteral("inputTokens")).toInteger(), 250);
    EXPECT_EQ(openAI.value(QStringLiteral("outputTokens")).toInteger(), 9);
}

TEST_F(CleanupTest, WhenTheProviderFailsTheRawTranscriptIsInserted) {
    server.setJsonResponse(500, R"({"error":{"message":"internal error","type":"server_error"}})");
    startProgram();

    dictateHolding(sentence("sense_and_sensibility_01_austen_64kb-0890"));
    const QString text = waitForInsertedText();
    ASSERT_FALSE(text.isEmpty()) << program->log().toStdString();
    EXPECT_TRUE(waitForState(QStringLiteral("idle")));

    EXPECT_EQ(server.requests().size(), 1);
    const QString transcript = loggedTranscript();
    ASSERT_FALSE(transcript.isEmpty()) << program->log().toStdString();
    EXPECT_EQ(text, transcript + QLatin1Char(' '));
    // The program's last error, and the line its tray menu shows for it.
    const std::optional<QString> lastError = property(QStringLiteral("LastError"));
    EXPECT_EQ(lastError, QStringLiteral("Cleanup failed \u2014 inserted the raw transcript."))
        << program->log().toStdString();
    EXPECT_EQ(MenuContent::errorLine(lastError.value_or(QString())),
              QStringLiteral("\u26A0\uFE0E Cleanup failed \u2014 inserted the raw transcript."));
    // Nothing was counted for a failed cleanup.
    const std::optional<QVariant> usage = preference(UsageTracker::allTimeKey);
    if (usage) {
        const QJsonObject allTime = QJsonDocument::fromJson(usage->toByteArray()).object();
        EXPECT_EQ(allTime.value(QStringLiteral("openAICompatible"))
                      .toObject()
                      .value(QStringLiteral("dictations"))
                      .toInteger(),
                  0);
    }
}

TEST_F(CleanupTest, WithoutATrayEachFailedCleanupIsOneNotificationReplacingTheLast) {
    server.setJsonResponse(500, R"({"error":{"message":"internal error","type":"server_error"}})");
    PrivateNotificationServer notifications(keyring->busAddress());
    ASSERT_TRUE(notifications.isRunning()) << qPrintable(notifications.error());
    setPreference(QStringLiteral("didShowRunningNotice"), true); // not the first start
    startProgram();
    // Murmurly's notices other than the one shown while recording.
    const auto messages = [&] {
        QList<PrivateNotificationServer::Shown> found;
        for (const auto& shown : notifications.shown())
            if (shown.appName == QStringLiteral("Murmurly") &&
                shown.body != QStringLiteral("Recording\u2026"))
                found << shown;
        return found;
    };
    for (int failures = 1; failures <= 2; ++failures) {
        const QString before = window.text();
        dictateHolding(sentence("sense_and_sensibility_01_austen_64kb-0890"));
        ASSERT_TRUE(waitUntil([&] { return window.text() != before; }, insertionWait))
            << program->log().toStdString();
        ASSERT_TRUE(waitForState(QStringLiteral("idle")));
        ASSERT_TRUE(waitUntil([&] { return messages().size() >= failures; })) << program->log().toStdString();
    }
    // Whatever else the program sent with them has reached the server before this.
    ASSERT_TRUE(notifications.notifyAsAnotherProgram(QStringLiteral("marker")).has_value());
    ASSERT_TRUE(waitUntil([&] {
        for (const auto& shown : notifications.shown())
            if (shown.body == QStringLiteral("marker")) return true;
        return false;
    }));
    const QList<PrivateNotificationServer::Shown> shown = messages();
    ASSERT_EQ(shown.size(), 2);
    const QString menuLine =
        MenuContent::errorLine(property(QStringLiteral("LastError")).value_or(QString()));
    EXPECT_EQ(menuLine, QStringLiteral("\u26A0\uFE0E Cleanup failed \u2014 inserted the raw transcript."));
    EXPECT_EQ(shown[0].body, menuLine);
    EXPECT_EQ(shown[1].body, menuLine);
    // The second took the first one's place.
    EXPECT_EQ(shown[1].id, shown[0].id);
}
