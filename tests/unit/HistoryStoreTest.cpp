#include "records/HistoryStore.h"
#include "LogCapture.h"
#include "ManualClock.h"
#include "MemoryDefaults.h"
#include "TemporaryHome.h"
#include "core/ReferenceDate.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>

using namespace murmurly;
using namespace std::chrono_literals;
using murmurly::testing::LogCapture;
using murmurly::testing::ManualClock;
using murmurly::testing::MemoryDefaults;
using murmurly::testing::TemporaryHome;

namespace {

class HistoryStoreTest : public ::testing::Test {
protected:
    HistoryEntry entry(const QString& raw, std::optional<QString> cleaned = std::nullopt,
                       double ageSeconds = 0) {
        return HistoryEntry{QUuid::createUuid(),
                            ReferenceDate::seconds(clock.now()) - ageSeconds,
                            raw,
                            std::move(cleaned),
                            QString::fromUtf8("—"),
                            QStringLiteral("org.kde.kate")};
    }

    QByteArray fileBytes() const {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    void writeFile(const QByteArray& bytes) const {
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }

    QStringList fileRawTexts() const {
        QStringList texts;
        if (auto entries = HistoryStore::decodeEntries(fileBytes()))
            for (const auto& e : *entries)
                texts << e.rawText;
        return texts;
    }

    static QStringList rawTexts(const QList<HistoryEntry>& entries) {
        QStringList texts;
        for (const auto& e : entries)
            texts << e.rawText;
        return texts;
    }

    TemporaryHome home;
    MemoryDefaults defaults;
    ManualClock clock;
    QString path = HistoryStore::defaultFilePath();
};

} // namespace

TEST_F(HistoryStoreTest, FileLivesUnderXdgDataHome) {
    EXPECT_EQ(path, home.dataHome() + QStringLiteral("/murmurly/history.json"));
}

TEST_F(HistoryStoreTest, DefaultsWhenNothingIsStored) {
    HistoryStore store(defaults, clock, path);
    EXPECT_FALSE(store.enabled());
    EXPECT_TRUE(store.entries().isEmpty());
    EXPECT_EQ(store.keepLast(), 100);
    EXPECT_EQ(store.maxAgeDays(), 0);
}

TEST_F(HistoryStoreTest, StoredZeroIsARealLimitAndANonIntegerFallsBack) {
    defaults.setInt(HistoryStore::keepLastKey, 0);
    defaults.setBytes(HistoryStore::maxAgeDaysKey, QByteArray("7"));
    HistoryStore store(defaults, clock, path);
    EXPECT_EQ(store.keepLast(), 0);
    EXPECT_EQ(store.maxAgeDays(), 0);
}

TEST_F(HistoryStoreTest, RecordWhileDisabledLeavesEntriesAndFileUnchanged) {
    HistoryStore store(defaults, clock, path);
    store.record(entry(QStringLiteral("one")));
    EXPECT_TRUE(store.entries().isEmpty());
    EXPECT_FALSE(QFile::exists(path));
}

TEST_F(HistoryStoreTest, RecordPutsTheNewestFirstAndWritesTheFile) {
    HistoryStore store(defaults, clock, path);
    store.setEnabled(true);
    store.record(entry(QStringLiteral("one")));
    store.record(entry(QStringLiteral("two")));
    EXPECT_EQ(rawTexts(store.entries()), (QStringList{"two", "one"}));
    EXPECT_EQ(fileRawTexts(), (QStringList{"two", "one"}));
}

TEST_F(HistoryStoreTest, KeepLastThreeAndFourRecordsDropTheOldest) {
    HistoryStore store(defaults, clock, path);
    store.setEnabled(true);
    store.setKeepLast(3);
    for (const char* text : {"first", "second", "third", "fourth"})
        store.record(entry(QString::fromUtf8(text)));
    EXPECT_EQ(rawTexts(store.entries()), (QStringList{"fourth", "third", "second"}));
    EXPECT_EQ(fileRawTexts(), (QStringList{"fourth", "third", "second"}));
}

TEST_F(HistoryStoreTest, LoweringKeepLastDropsTheSurplusAtOnceAndRaisingItDoesNotBringThemBack) {
    HistoryStore store(defaults, clock, path);
    store.setEnabled(true);
    for (int i = 0; i < 40; ++i)
        store.record(entry(QString::number(i)));
    ASSERT_EQ(store.entries().size(), 40);
    store.setKeepLast(25);
    EXPECT_EQ(store.entries().size(), 25);
    EXPECT_EQ(store.entries().first().rawText, QStringLiteral("39"));
    EXPECT_EQ(fileRawTexts().size(), 25);
    EXPECT_EQ(defaults.intValue(HistoryStore::keepLastKey), 25);
    store.setKeepLast(100);
    EXPECT_EQ(store.entries().size(), 25);
    EXPECT_EQ(fileRawTexts().size(), 25);
}

TEST_F(HistoryStoreTest, MaxAgeOneDayRemovesAnEntry86401SecondsOldAndKeepsOne86399SecondsOld) {
    HistoryStore store(defaults, clock, path);
    store.setEnabled(true);
    store.setEntries({entry(QStringLiteral("young"), std::nullopt, 86399),
                      entry(QStringLiteral("old"), std::nullopt, 86401)});
    store.setMaxAgeDays(1);
    EXPECT_EQ(rawTexts(store.entries()), QStringList{"young"});
    EXPECT_EQ(fileRawTexts(), QStringList{"young"});
}

TEST_F(HistoryStoreTest, AnEntryExactlyAtTheCutoffStays) {
    HistoryStore store(defaults, clock, path);
    store.setEntries({entry(QStringLiteral("edge"), std::nullopt, 86400)});
    store.setMaxAgeDays(1);
    EXPECT_EQ(rawTexts(store.entries()), QStringList{"edge"});
}

TEST_F(HistoryStoreTest, AgeIsMeasuredAtThePruneNotAtTheRecord) {
    HistoryStore store(defaults, clock, path);
    store.setEnabled(true);
    store.setMaxAgeDays(1);
    store.record(entry(QStringLiteral("early")));
    clock.advance(std::chrono::hours(24) + 1s);
    store.record(entry(QStringLiteral("late")));
    EXPECT_EQ(rawTexts(store.entries()), QStringList{"late"});
}

TEST_F(HistoryStoreTest, KeepLastZeroAndMaxAgeZeroNeverPrune) {
    HistoryStore store(defaults, clock, path);
    store.setEnabled(true);
    store.setKeepLast(0);
    store.setMaxAgeDays(0);
    store.setEntries({entry(QStringLiteral("ancient"), std::nullopt, 1e9)});
    for (int i = 0; i < 150; ++i)
        store.record(entry(QString::number(i)));
    EXPECT_EQ(store.entries().size(), 151);
    EXPECT_EQ(store.entries().last().rawText, QStringLiteral("ancient"));
}

TEST_F(HistoryStoreTest, EntryWithoutCleanedTextIsWrittenWithoutThatKey) {
    HistoryStore store(defaults, clock, path);
    store.setEnabled(true);
    HistoryEntry e = entry(QStringLiteral("raw"));
    e.appBundleID.reset();
    store.record(e);
    const QByteArray bytes = fileBytes();
    EXPECT_FALSE(bytes.contains("cleanedText"));
    EXPECT_FALSE(bytes.contains("appBundleID"));
    EXPECT_FALSE(bytes.contains("null"));
}

TEST_F(HistoryStoreTest, FileIsACompactArrayWithKeysInDeclarationOrder) {
    HistoryStore store(defaults, clock, path);
    store.setEnabled(true);
    HistoryEntry e = entry(QStringLiteral("raw"), QStringLiteral("Clean."));
    e.id = QUuid::fromString(QStringLiteral("e621e1f8-c36c-495a-93fc-0c247a3e6e5f"));
    e.timestamp = 785000000.25;
    store.record(e);
    EXPECT_EQ(fileBytes(),
              QByteArray("[{\"id\":\"E621E1F8-C36C-495A-93FC-0C247A3E6E5F\",\"timestamp\":785000000.25,"
                         "\"rawText\":\"raw\",\"cleanedText\":\"Clean.\",\"providerName\":\"—\","
                         "\"appBundleID\":\"org.kde.kate\"}]"));
}

TEST_F(HistoryStoreTest, FileWhoseEntryHasNullCleanedTextLoads) {
    writeFile(
        R"([{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","timestamp":1.5,"rawText":"hi","cleanedText":null,"providerName":"x","appBundleID":null}])");
    HistoryStore store(defaults, clock, path);
    ASSERT_EQ(store.entries().size(), 1);
    EXPECT_FALSE(store.entries().first().cleanedText);
    EXPECT_FALSE(store.entries().first().appBundleID);
    EXPECT_DOUBLE_EQ(store.entries().first().timestamp, 1.5);
}

TEST_F(HistoryStoreTest, FileWithOneEntryLackingProviderNameLoadsAsAnEmptyHistory) {
    const QByteArray bad =
        R"([{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","timestamp":1,"rawText":"a","providerName":"x"},
                               {"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E60","timestamp":2,"rawText":"b"}])";
    writeFile(bad);
    HistoryStore store(defaults, clock, path);
    EXPECT_TRUE(store.entries().isEmpty());
    EXPECT_EQ(fileBytes(), bad); // left on disk until the next save
}

TEST_F(HistoryStoreTest, CorruptFilesLoadAsAnEmptyHistory) {
    for (
        const QByteArray& bad :
        {QByteArray("not json"), QByteArray("{}"), QByteArray("[1]"), QByteArray("\x00\xff", 2),
         QByteArray(R"([{"id":"x","timestamp":1,"rawText":"a","providerName":"p"}])"),
         QByteArray(
             R"([{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","timestamp":"1","rawText":"a","providerName":"p"}])"),
         QByteArray(
             R"([{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","timestamp":1,"rawText":"a","providerName":"p","cleanedText":3}])")}) {
        writeFile(bad);
        HistoryStore store(defaults, clock, path);
        EXPECT_TRUE(store.entries().isEmpty()) << bad.constData();
    }
}

TEST_F(HistoryStoreTest, FileIsLoadedWhenHistoryIsDisabledAndPrunedAtStartWithoutSaving) {
    HistoryEntry old = entry(QStringLiteral("old"), std::nullopt, 3 * 86400.0);
    HistoryEntry young = entry(QStringLiteral("young"));
    const QByteArray stored = HistoryStore::encodeEntries({young, old});
    writeFile(stored);
    defaults.setInt(HistoryStore::maxAgeDaysKey, 2);
    HistoryStore store(defaults, clock, path);
    EXPECT_FALSE(store.enabled());
    EXPECT_EQ(store.entries(), QList<HistoryEntry>{young});
    EXPECT_EQ(fileBytes(), stored);
}

TEST_F(HistoryStoreTest, TurningHistoryOffKeepsEntriesAndFile) {
    HistoryStore store(defaults, clock, path);
    store.setEnabled(true);
    store.record(entry(QStringLiteral("kept")));
    const QByteArray before = fileBytes();
    store.setEnabled(false);
    EXPECT_EQ(defaults.boolValue(HistoryStore::enabledKey), false);
    EXPECT_EQ(store.entries().size(), 1);
    EXPECT_EQ(fileBytes(), before);
}

TEST_F(HistoryStoreTest, ClearingFromOutsideThenSavingEmptiesTheFile) {
    HistoryStore store(defaults, clock, path);
    store.setEnabled(true);
    store.record(entry(QStringLiteral("gone")));
    store.setEntries({});
    store.save();
    EXPECT_EQ(fileBytes(), QByteArray("[]"));
}

TEST_F(HistoryStoreTest, EntriesRoundTripThroughTheFile) {
    HistoryStore store(defaults, clock, path);
    store.setEnabled(true);
    HistoryEntry a = entry(QString::fromUtf8("naïve \"quote\"\n😀"), QStringLiteral("Clean"));
    a.timestamp = 0.1; // not exactly representable: must still round-trip
    HistoryEntry b = entry(QStringLiteral("plain"));
    b.appBundleID.reset();
    store.record(a);
    store.record(b);
    HistoryStore reloaded(defaults, clock, path);
    EXPECT_EQ(reloaded.entries(), (QList<HistoryEntry>{b, a}));
}

TEST_F(HistoryStoreTest, FileIsPrivateToTheUser) {
    HistoryStore store(defaults, clock, path);
    store.setEnabled(true);
    store.record(entry(QStringLiteral("secret")));
    EXPECT_EQ(QFileInfo(path).permissions() & 0x7777, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                          QFileDevice::ReadUser | QFileDevice::WriteUser);
    const auto folder = QFileInfo(QFileInfo(path).absolutePath()).permissions() & 0x7777;
    EXPECT_EQ(folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner |
                          QFileDevice::ReadUser | QFileDevice::WriteUser | QFileDevice::ExeUser);
}

TEST_F(HistoryStoreTest, SaveReplacesTheFileAtomically) {
    HistoryStore store(defaults, clock, path);
    store.setEnabled(true);
    store.record(entry(QStringLiteral("one")));
    const QFileInfo folder(QFileInfo(path).absolutePath());
    store.record(entry(QStringLiteral("two")));
    // No temporary file is left beside the history.
    EXPECT_EQ(QDir(folder.absoluteFilePath()).entryList(QDir::Files), QStringList{"history.json"});
}

TEST_F(HistoryStoreTest, UnwritableFolderIsSilent) {
    const QString blocked = home.filePath(QStringLiteral("blocked"));
    QFile(blocked).open(QIODevice::WriteOnly); // a file where the folder should be
    HistoryStore store(defaults, clock, blocked + QStringLiteral("/history.json"));
    store.setEnabled(true);
    store.record(entry(QStringLiteral("kept in memory")));
    EXPECT_EQ(store.entries().size(), 1);
}

TEST_F(HistoryStoreTest, QueryIsTrimmedAndMatchesRawOrCleanedTextIgnoringCase) {
    HistoryStore store(defaults, clock, path);
    store.setEntries({entry(QStringLiteral("say Hello there")),
                      entry(QStringLiteral("nothing"), QStringLiteral("HELLO")),
                      entry(QStringLiteral("goodbye"))});
    EXPECT_EQ(rawTexts(store.filtered(QStringLiteral("  hello "))),
              (QStringList{"say Hello there", "nothing"}));
    EXPECT_EQ(store.filtered(QStringLiteral("   ")).size(), 3);
    EXPECT_EQ(store.filtered(QString()).size(), 3);
    EXPECT_EQ(store.filtered(QStringLiteral("\thello\u3000")).size(), 2);
}

TEST_F(HistoryStoreTest, QueryNewlinesAreNotTrimmed) {
    HistoryStore store(defaults, clock, path);
    store.setEntries({entry(QStringLiteral("hello"))});
    EXPECT_TRUE(store.filtered(QStringLiteral("hello\n")).isEmpty());
}

TEST_F(HistoryStoreTest, ProviderAndAppAreNotSearched) {
    HistoryStore store(defaults, clock, path);
    store.setEntries({entry(QStringLiteral("text"))});
    EXPECT_TRUE(store.filtered(QStringLiteral("kate")).isEmpty());
    EXPECT_TRUE(store.filtered(QString::fromUtf8("—")).isEmpty());
}

TEST_F(HistoryStoreTest, ChangesAreSignalled) {
    HistoryStore store(defaults, clock, path);
    QSignalSpy entries(&store, &HistoryStore::entriesChanged);
    QSignalSpy keep(&store, &HistoryStore::keepLastChanged);
    store.setEnabled(true);
    store.record(entry(QStringLiteral("a")));
    store.setKeepLast(5);
    EXPECT_EQ(entries.count(), 1);
    EXPECT_EQ(keep.count(), 1);
}

TEST_F(HistoryStoreTest, EntriesSharingAnIdAreEachWrittenWithTheirOwnText) {
    HistoryEntry first = entry(QStringLiteral("first"));
    HistoryEntry second = first;
    second.rawText = QStringLiteral("second");
    writeFile(HistoryStore::encodeEntries({first, second}));
    HistoryStore store(defaults, clock, path);
    store.setEnabled(true);
    store.record(entry(QStringLiteral("new")));
    store.record(entry(QStringLiteral("newer"))); // the second save reuses what the first encoded
    EXPECT_EQ(fileRawTexts(), (QStringList{"newer", "new", "first", "second"}));
}

TEST_F(HistoryStoreTest, AnEntryReplacedFromOutsideIsWrittenWithItsNewText) {
    HistoryStore store(defaults, clock, path);
    store.setEnabled(true);
    store.record(entry(QStringLiteral("before")));
    HistoryEntry edited = store.entries().first();
    edited.cleanedText = QStringLiteral("after");
    store.setEntries({edited});
    store.save();
    const auto saved = HistoryStore::decodeEntries(fileBytes());
    ASSERT_TRUE(saved);
    EXPECT_EQ(*saved, QList<HistoryEntry>{edited});
}

TEST_F(HistoryStoreTest, FileNestedMoreThan64DeepLoadsAsAnEmptyHistory) {
    const auto file = [](int extraDepth) {
        // The array and the entry are the first two levels; the reader ignores "note".
        return R"([{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","timestamp":1.5,"rawText":"hi",)"
               R"("providerName":"x","note":)" +
               QByteArray(extraDepth, '[') + QByteArray(extraDepth, ']') + "}]";
    };
    writeFile(file(62));
    {
        HistoryStore store(defaults, clock, path);
        ASSERT_EQ(store.entries().size(), 1);
        EXPECT_EQ(store.entries().first().rawText, QStringLiteral("hi"));
    }
    for (const QByteArray& deep : {file(63), QByteArray(4 * 1024 * 1024, '[')}) {
        writeFile(deep);
        HistoryStore store(defaults, clock, path);
        EXPECT_TRUE(store.entries().isEmpty()) << deep.left(40).constData();
    }
}

namespace {

// The name a kept file gets at the clock's time, spelled out with the C library's local time.
QString expectedKeptName(const ManualClock& clock) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(clock.now());
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[64] = {};
    std::strftime(text, sizeof text, "history.unreadable-%Y-%m-%d-%H%M%S.json", &local);
    return QString::fromLatin1(text);
}

QStringList filesBeside(const QString& path) {
    return QDir(QFileInfo(path).absolutePath()).entryList(QDir::Files, QDir::Name);
}

} // namespace

TEST_F(HistoryStoreTest, AnUnreadableFileIsKeptBesideTheNewOneUnderADatedNameBeforeTheFirstSave) {
    const QByteArray garbage("[{\"id\": this is not JSON \x01\xfe at all");
    writeFile(garbage);
    LogCapture log;
    HistoryStore store(defaults, clock, path);
    QSignalSpy kept(&store, &HistoryStore::unreadableFileKept);
    EXPECT_TRUE(store.entries().isEmpty());
    EXPECT_EQ(fileBytes(), garbage); // loading alone moves nothing

    store.setEnabled(true);
    store.record(entry(QStringLiteral("first")));
    const QString keptName = expectedKeptName(clock);
    EXPECT_EQ(filesBeside(path), (QStringList{QStringLiteral("history.json"), keptName}));
    QFile keptFile(QFileInfo(path).absoluteDir().filePath(keptName));
    ASSERT_TRUE(keptFile.open(QIODevice::ReadOnly));
    EXPECT_EQ(keptFile.readAll(), garbage);
    EXPECT_EQ(fileRawTexts(), QStringList{QStringLiteral("first")});
    ASSERT_EQ(kept.count(), 1);
    EXPECT_EQ(kept.at(0).at(0).toString(), keptFile.fileName());
    EXPECT_EQ(
        log.messages(QtWarningMsg),
        QStringList{QStringLiteral("History file could not be read; kept it as ") + keptFile.fileName()});

    // Said once: later saves write over the new file only.
    clock.advance(5s);
    store.record(entry(QStringLiteral("second")));
    EXPECT_EQ(filesBeside(path), (QStringList{QStringLiteral("history.json"), keptName}));
    EXPECT_EQ(kept.count(), 1);
    EXPECT_EQ(log.messages(QtWarningMsg).size(), 1);
}

TEST_F(HistoryStoreTest, ASecondUnreadableFileInTheSameSecondDoesNotReplaceTheFirstKeptOne) {
    writeFile("first garbage");
    {
        HistoryStore store(defaults, clock, path);
        store.save();
    }
    writeFile("second garbage");
    HistoryStore store(defaults, clock, path);
    store.save();
    const QStringList files = filesBeside(path);
    ASSERT_EQ(files.size(), 3) << files.join(QLatin1Char(' ')).toStdString();
    QStringList keptContents;
    for (const QString& name : files) {
        if (name == QStringLiteral("history.json")) continue;
        QFile file(QFileInfo(path).absoluteDir().filePath(name));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        keptContents << QString::fromUtf8(file.readAll());
    }
    keptContents.sort();
    EXPECT_EQ(keptContents, (QStringList{QStringLiteral("first garbage"), QStringLiteral("second garbage")}));
}

TEST_F(HistoryStoreTest, AReadableOrEmptyOrMissingFileIsNotKeptAside) {
    HistoryStore fresh(defaults, clock, path); // no file yet
    QSignalSpy keptFresh(&fresh, &HistoryStore::unreadableFileKept);
    fresh.save();
    EXPECT_EQ(filesBeside(path), QStringList{QStringLiteral("history.json")});

    HistoryStore readable(defaults, clock, path); // the "[]" just written
    QSignalSpy keptReadable(&readable, &HistoryStore::unreadableFileKept);
    readable.save();
    EXPECT_EQ(filesBeside(path), QStringList{QStringLiteral("history.json")});

    writeFile(QByteArray());
    HistoryStore empty(defaults, clock, path);
    QSignalSpy keptEmpty(&empty, &HistoryStore::unreadableFileKept);
    empty.save();
    EXPECT_EQ(filesBeside(path), QStringList{QStringLiteral("history.json")});
    EXPECT_EQ(keptFresh.count() + keptReadable.count() + keptEmpty.count(), 0);
}
