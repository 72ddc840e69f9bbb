#include "output/TextInserter.h"
#include "FakeClipboard.h"
#include "FakePasteKeys.h"
#include "ManualClock.h"

#include <QLoggingCategory>

#include <gtest/gtest.h>

using namespace murmurly;
using namespace std::chrono_literals;
using murmurly::testing::FakeClipboard;
using murmurly::testing::FakePasteKeys;
using murmurly::testing::ManualClock;

namespace {

const QString plainText = QStringLiteral("text/plain");
const QString png = QStringLiteral("image/png");

// Keeps the messages of the app category written while it lives.
class LogCapture {
public:
    LogCapture() {
        s_messages.clear();
        m_previous = qInstallMessageHandler(&LogCapture::handle);
    }
    ~LogCapture() { qInstallMessageHandler(m_previous); }

    static QStringList criticals() { return s_messages; }

private:
    static void handle(QtMsgType type, const QMessageLogContext& context, const QString& message) {
        if (type == QtCriticalMsg && QByteArray(context.category) == "com.qv.murmurly.app")
            s_messages << message;
    }

    static inline QStringList s_messages;
    QtMessageHandler m_previous = nullptr;
};

class TextInserterTest : public ::testing::Test {
protected:
    FakeClipboard clipboard;
    FakePasteKeys keys;
    ManualClock clock;
    TextInserter inserter{clipboard, keys, clock};
};

ClipboardItem imageWithTextTwin() {
    return ClipboardItem{{png, QByteArray("\x89PNG\r\n\x1a\n\x00\x01", 10)}, {plainText, "a picture"}};
}

} // namespace

TEST_F(TextInserterTest, WaitsOneHundredEightyMillisecondsBeforeRestoring) {
    EXPECT_EQ(inserter.restoreDelayMilliseconds(), 180);
    clipboard.items = {ClipboardItem{{plainText, "before"}}};
    auto task = inserter.insert(QStringLiteral("word"));
    EXPECT_EQ(clipboard.text(), QStringLiteral("word"));
    clock.advance(179ms);
    EXPECT_EQ(clipboard.text(), QStringLiteral("word"));
    EXPECT_FALSE(task.isReady());
    clock.advance(1ms);
    EXPECT_EQ(clipboard.text(), QStringLiteral("before"));
    EXPECT_TRUE(task.isReady());
}

TEST_F(TextInserterTest, SnapshotsThenWritesThenPastesThenRestores) {
    QStringList atPaste;
    QString textAtPaste;
    keys.onPaste = [&] {
        atPaste = clipboard.operations;
        textAtPaste = clipboard.text();
    };
    auto task = inserter.insert(QStringLiteral("hello there"));
    EXPECT_EQ(atPaste, (QStringList{QStringLiteral("snapshot"), QStringLiteral("write")}));
    EXPECT_EQ(textAtPaste, QStringLiteral("hello there"));
    EXPECT_EQ(keys.chords, 1);
    clock.advance(180ms);
    EXPECT_EQ(clipboard.operations,
              (QStringList{QStringLiteral("snapshot"), QStringLiteral("write"), QStringLiteral("restore")}));
    EXPECT_EQ(keys.chords, 1);
}

TEST_F(TextInserterTest, AnImageWithItsTextTwinComesBackWithTheSameBytes) {
    clipboard.items = {imageWithTextTwin()};
    auto task = inserter.insert(QStringLiteral("word"));
    clock.advance(180ms);
    ASSERT_EQ(clipboard.items.size(), 1);
    EXPECT_EQ(clipboard.items.first(), imageWithTextTwin());
    EXPECT_EQ(clipboard.items.first().entries().first().first, png); // the order of the types too
}

TEST_F(TextInserterTest, AnEmptyClipboardIsEmptyAgainAfterwards) {
    auto task = inserter.insert(QStringLiteral("word"));
    EXPECT_FALSE(clipboard.items.isEmpty());
    clock.advance(180ms);
    EXPECT_TRUE(clipboard.items.isEmpty());
}

TEST_F(TextInserterTest, SeveralItemsComeBackInTheSameNumberAndOrder) {
    const ClipboardSnapshot before = {ClipboardItem{{plainText, "one"}}, imageWithTextTwin(), ClipboardItem{},
                                      ClipboardItem{{QStringLiteral("text/uri-list"), "file:///tmp/x"}}};
    clipboard.items = before;
    auto task = inserter.insert(QStringLiteral("word"));
    // The paste read the word alone; only then do the four items come back.
    EXPECT_EQ(keys.chords, 1);
    EXPECT_EQ(clipboard.items, (ClipboardSnapshot{ClipboardItem{{plainText, "word"}}}));
    clock.advance(179ms);
    EXPECT_EQ(clipboard.items, (ClipboardSnapshot{ClipboardItem{{plainText, "word"}}}));
    clock.advance(1ms);
    EXPECT_EQ(clipboard.items, before);
    EXPECT_EQ(clipboard.items.size(), 4);
}

TEST_F(TextInserterTest, AChangeByAnotherApplicationDuringTheWaitIsOverwritten) {
    clipboard.items = {ClipboardItem{{plainText, "mine"}}};
    auto task = inserter.insert(QStringLiteral("word"));
    clock.advance(100ms);
    clipboard.items = {ClipboardItem{{plainText, "someone else's"}}};
    clock.advance(80ms);
    EXPECT_EQ(clipboard.text(), QStringLiteral("mine"));
}

TEST_F(TextInserterTest, AChordThatCannotBeMadeIsLoggedAndTheClipboardStillComesBackAfterTheWait) {
    LogCapture log;
    keys.canMakeEvents = false;
    clipboard.items = {ClipboardItem{{plainText, "before"}}};
    auto task = inserter.insert(QStringLiteral("word"));
    EXPECT_EQ(keys.attempts, 1);
    EXPECT_EQ(keys.chords, 0);
    EXPECT_EQ(LogCapture::criticals(), QStringList{QStringLiteral("Failed to create Ctrl+V key events")});
    EXPECT_EQ(clipboard.text(), QStringLiteral("word"));
    clock.advance(179ms);
    EXPECT_EQ(clipboard.text(), QStringLiteral("word"));
    clock.advance(1ms);
    EXPECT_EQ(clipboard.text(), QStringLiteral("before"));
}

TEST_F(TextInserterTest, ASuccessfulChordLogsNothing) {
    LogCapture log;
    auto task = inserter.insert(QStringLiteral("word"));
    clock.advance(180ms);
    EXPECT_TRUE(LogCapture::criticals().isEmpty());
}

TEST_F(TextInserterTest, CancellingRestoresAtOnce) {
    clipboard.items = {ClipboardItem{{plainText, "before"}}};
    auto task = inserter.insert(QStringLiteral("word"));
    clock.advance(50ms);
    inserter.cancel();
    EXPECT_TRUE(task.isReady());
    EXPECT_EQ(clipboard.text(), QStringLiteral("before"));
    // The sleep that was cut short ends later without restoring a second time.
    clipboard.items = {ClipboardItem{{plainText, "later"}}};
    clock.advance(200ms);
    EXPECT_EQ(clipboard.text(), QStringLiteral("later"));
    EXPECT_EQ(clipboard.operations.count(QStringLiteral("restore")), 1);
}

TEST_F(TextInserterTest, CancelWithNothingInProgressDoesNothing) {
    inserter.cancel();
    EXPECT_TRUE(clipboard.operations.isEmpty());
}

TEST_F(TextInserterTest, ASecondInsertDuringTheWaitRunsOnceTheFirstHasRestored) {
    QStringList pasted;
    keys.onPaste = [&] { pasted << clipboard.text(); };
    clipboard.items = {ClipboardItem{{plainText, "before"}}};
    auto first = inserter.insert(QStringLiteral("one"));
    clock.advance(100ms);
    auto second = inserter.insert(QStringLiteral("two"));
    // The second waits: the first's text stays on the clipboard for its paste.
    EXPECT_EQ(clipboard.text(), QStringLiteral("one"));
    EXPECT_EQ(pasted, QStringList{QStringLiteral("one")});
    EXPECT_FALSE(second.isReady());

    clock.advance(80ms); // the first restores, then the second snapshots that and pastes
    EXPECT_TRUE(first.isReady());
    EXPECT_FALSE(second.isReady());
    EXPECT_EQ(pasted, (QStringList{QStringLiteral("one"), QStringLiteral("two")}));
    EXPECT_EQ(clipboard.operations,
              (QStringList{QStringLiteral("snapshot"), QStringLiteral("write"), QStringLiteral("restore"),
                           QStringLiteral("snapshot"), QStringLiteral("write")}));
    EXPECT_EQ(clipboard.text(), QStringLiteral("two"));

    // Its own full wait, then the user's contents come back.
    clock.advance(179ms);
    EXPECT_EQ(clipboard.text(), QStringLiteral("two"));
    EXPECT_FALSE(second.isReady());
    clock.advance(1ms);
    EXPECT_TRUE(second.isReady());
    EXPECT_EQ(clipboard.text(), QStringLiteral("before"));
    EXPECT_EQ(keys.chords, 2);
}

TEST_F(TextInserterTest, InsertionsThatPileUpRunInTheOrderOfTheCalls) {
    QStringList pasted;
    keys.onPaste = [&] { pasted << clipboard.text(); };
    const ClipboardSnapshot before = {imageWithTextTwin(), ClipboardItem{{plainText, "second item"}}};
    clipboard.items = before;
    auto first = inserter.insert(QStringLiteral("one"));
    auto second = inserter.insert(QStringLiteral("two"));
    clock.advance(10ms);
    auto third = inserter.insert(QStringLiteral("three"));
    EXPECT_EQ(pasted, QStringList{QStringLiteral("one")});

    clock.advance(170ms);
    EXPECT_EQ(pasted, (QStringList{QStringLiteral("one"), QStringLiteral("two")}));
    clock.advance(180ms);
    EXPECT_EQ(pasted, (QStringList{QStringLiteral("one"), QStringLiteral("two"), QStringLiteral("three")}));
    EXPECT_TRUE(first.isReady());
    EXPECT_TRUE(second.isReady());
    EXPECT_FALSE(third.isReady());
    clock.advance(180ms);
    EXPECT_TRUE(third.isReady());
    EXPECT_EQ(clipboard.items, before);
    EXPECT_EQ(clipboard.operations.count(QStringLiteral("restore")), 3);

    // With the line empty again, the next insertion starts at once.
    auto fourth = inserter.insert(QStringLiteral("four"));
    EXPECT_EQ(pasted.size(), 4);
    EXPECT_EQ(pasted.last(), QStringLiteral("four"));
    clock.advance(180ms);
    EXPECT_TRUE(fourth.isReady());
    EXPECT_EQ(clipboard.items, before);
}

TEST_F(TextInserterTest, CancellingDropsTheInsertionsWaitingTheirTurn) {
    clipboard.items = {ClipboardItem{{plainText, "before"}}};
    auto first = inserter.insert(QStringLiteral("one"));
    auto second = inserter.insert(QStringLiteral("two"));
    clock.advance(50ms);
    inserter.cancel();
    EXPECT_TRUE(first.isReady());
    EXPECT_TRUE(second.isReady());
    EXPECT_EQ(clipboard.text(), QStringLiteral("before"));
    EXPECT_EQ(keys.chords, 1);
    clock.advance(500ms);
    EXPECT_EQ(keys.chords, 1);
    EXPECT_EQ(clipboard.operations,
              (QStringList{QStringLiteral("snapshot"), QStringLiteral("write"), QStringLiteral("restore")}));

    // The inserter is free again afterwards.
    auto third = inserter.insert(QStringLiteral("three"));
    EXPECT_EQ(clipboard.text(), QStringLiteral("three"));
    clock.advance(180ms);
    EXPECT_TRUE(third.isReady());
    EXPECT_EQ(clipboard.text(), QStringLiteral("before"));
}
