// What a dictation leaves behind in the user's files: the history entry with the application it
// went to, the user's replacements in the text and the entry, and a history file that survives
// the program being killed while it writes it.
#include "MurmurlyDesktop.h"

#include "StoredReplacement.h"
#include "WaitUntil.h"
#include "core/ReferenceDate.h"
#include "records/HistoryStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QUuid>

#include <csignal>
#include <cstdio>
#include <sys/types.h>

using namespace murmurly;
using namespace murmurly::testing;
using namespace std::chrono_literals;

namespace {

class RecordsTest : public MurmurlyDesktopTest {
protected:
    QString historyPath() const { return home.dataHome() + QStringLiteral("/murmurly/history.json"); }

    std::optional<QList<HistoryEntry>> history() const {
        QFile file(historyPath());
        if (!file.open(QIODevice::ReadOnly)) return std::nullopt;
        return HistoryStore::decodeEntries(file.readAll());
    }

    // The text field's application as desktop entries declare it, where the program looks them up.
    void installTextFieldDesktopEntry() {
        const QString folder = home.dataHome() + QStringLiteral("/applications");
        ASSERT_TRUE(QDir().mkpath(folder));
        QFile file(folder + QStringLiteral("/org.example.Notepadish.desktop"));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("[Desktop Entry]\nType=Application\nName=Notepadish Notes\nExec=true\nStartupWMClass=" +
                   textFieldWindowClass.toUtf8() + "\n");
    }
};

} // namespace

TEST_F(RecordsTest, HistoryRecordsTheTranscriptAndTheApplicationItWentTo) {
    setPreference(HistoryStore::enabledKey, true);
    installTextFieldDesktopEntry();
    startProgram();

    dictateHolding(sentence("sense_and_sensibility_01_austen_64kb-0890"));
    const QString text = waitForInsertedText();
    ASSERT_FALSE(text.isEmpty()) << program->log().toStdString();
    ASSERT_TRUE(waitForState(QStringLiteral("idle")));

    std::optional<QList<HistoryEntry>> entries;
    ASSERT_TRUE(waitUntil([&] {
        entries = history();
        return entries && !entries->isEmpty();
    })) << "no history at "
        << historyPath().toStdString();
    ASSERT_EQ(entries->size(), 1);
    const HistoryEntry& entry = entries->constFirst();
    EXPECT_EQ(entry.rawText, text.trimmed());
    EXPECT_EQ(entry.cleanedText, std::nullopt);
    EXPECT_EQ(entry.appBundleID, QStringLiteral("org.example.Notepadish"));
    EXPECT_FALSE(entry.id.isNull());
    const double now = ReferenceDate::seconds(std::chrono::system_clock::now());
    EXPECT_NEAR(entry.timestamp, now, 120.0);
}

TEST_F(RecordsTest, AReplacementRuleChangesTheInsertedTextAndTheRecordedOne) {
    setPreference(HistoryStore::enabledKey, true);
    storeReplacementRule(QStringLiteral("man"), QStringLiteral("person"));
    startProgram();

    // "he was not an ill disposed young man": the recognizer hears "man" in it.
    dictateHolding(sentence("sense_and_sensibility_01_austen_64kb-0880"));
    const QString text = waitForInsertedText();
    ASSERT_FALSE(text.isEmpty()) << program->log().toStdString();
    ASSERT_TRUE(waitForState(QStringLiteral("idle")));
    std::printf("inserted: \"%s\"\n", qPrintable(text));

    const QRegularExpression man(QStringLiteral("\\bman\\b"));
    EXPECT_TRUE(text.contains(QRegularExpression(QStringLiteral("\\bperson\\b")))) << text.toStdString();
    EXPECT_FALSE(text.contains(man)) << text.toStdString();

    std::optional<QList<HistoryEntry>> entries;
    ASSERT_TRUE(waitUntil([&] {
        entries = history();
        return entries && !entries->isEmpty();
    }));
    const HistoryEntry& entry = entries->constFirst();
    EXPECT_TRUE(entry.rawText.contains(man)) << entry.rawText.toStdString();
    ASSERT_TRUE(entry.cleanedText.has_value());
    EXPECT_EQ(*entry.cleanedText, text.trimmed());
    QString expected = entry.rawText;
    expected.replace(man, QStringLiteral("person"));
    EXPECT_EQ(*entry.cleanedText, expected);
}

TEST_F(RecordsTest, KillingTheProgramWhileItWritesTheHistoryLosesNoEarlierEntry) {
    // A history large enough that writing it takes a while.
    QList<HistoryEntry> earlier;
    const double now = ReferenceDate::seconds(std::chrono::system_clock::now());
    const QString words = QStringLiteral("an earlier dictation with some length to it ").repeated(40);
    for (int i = 0; i < 5000; ++i) {
        HistoryEntry entry;
        entry.id = QUuid::createUuid();
        entry.timestamp = now - 60.0 - i;
        entry.rawText = QString::number(i) + QLatin1Char(' ') + words;
        entry.providerName = QStringLiteral("None");
        earlier.append(entry);
    }
    ASSERT_TRUE(QDir().mkpath(home.dataHome() + QStringLiteral("/murmurly")));
    {
        QFile file(historyPath());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        const QByteArray bytes = HistoryStore::encodeEntries(earlier);
        ASSERT_EQ(file.write(bytes), bytes.size());
        std::printf("history before: %lld bytes, %lld entries\n", static_cast<long long>(bytes.size()),
                    static_cast<long long>(earlier.size()));
    }
    setPreference(HistoryStore::enabledKey, true);
    setPreference(HistoryStore::keepLastKey, 10000);
    startProgram();

    dictateHolding(sentence("sense_and_sensibility_01_austen_64kb-0890"));
    // The file is written through a temporary file in its folder (unnamed on Linux) that replaces
    // it when complete; the kill lands as soon as the program holds a file open in that folder.
    const QString folder = home.dataHome() + QStringLiteral("/murmurly/");
    const QString descriptors = QStringLiteral("/proc/%1/fd").arg(program->processId());
    const auto writing = [&] {
        for (const QFileInfo& descriptor : QDir(descriptors).entryInfoList(QDir::Files | QDir::System))
            if (descriptor.symLinkTarget().startsWith(folder)) return true;
        return false;
    };
    const bool caughtWriting = waitUntil(writing, 20s);
    ::kill(static_cast<pid_t>(program->processId()), SIGKILL);
    program->killNow();
    std::printf("killed %s\n", caughtWriting ? "while it had a file open in the history folder"
                                             : "after 20 s without seeing it write the history");
    std::printf("inserted before the kill: \"%s\"\n", qPrintable(window.text()));

    // Started again, the program finds every earlier entry.
    program = std::make_unique<RunningMurmurly>();
    ASSERT_TRUE(
        waitUntil([&] { return property(QStringLiteral("ModelStatus")) == QStringLiteral("ready"); }, 30s))
        << program->log().toStdString();
    EXPECT_EQ(program->stop(), 0) << program->log().toStdString();

    const std::optional<QList<HistoryEntry>> after = history();
    ASSERT_TRUE(after.has_value()) << "history.json is missing or does not parse";
    std::printf("history after: %lld entries\n", static_cast<long long>(after->size()));
    ASSERT_GE(after->size(), earlier.size());
    ASSERT_LE(after->size(), earlier.size() + 1);
    // Newest first: the dictation, when it was saved, comes before the earlier entries.
    const qsizetype offset = after->size() - earlier.size();
    for (qsizetype i = 0; i < earlier.size(); ++i) {
        ASSERT_EQ(after->at(offset + i).id, earlier.at(i).id) << "entry " << i;
        ASSERT_EQ(after->at(offset + i).rawText, earlier.at(i).rawText) << "entry " << i;
    }
}
