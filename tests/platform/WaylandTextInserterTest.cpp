// Insertion on a real Wayland compositor (headless sway): the data-control clipboard, the
// virtual-keyboard paste chord, and a Wayland-native window with a focused line edit, which also
// reads the clipboard back through its own (Qt's) Wayland clipboard, as another application would.
#include "HeadlessSway.h"
#include "ManualClock.h"
#include "TextFieldWindowProcess.h"
#include "WaitUntil.h"
#include "WaylandTestKeyboard.h"
#include "output/TextInserter.h"
#include "platform/wayland/DataControlClipboard.h"
#include "platform/wayland/VirtualKeyboardPasteKeys.h"
#include "platform/wayland/WaylandActiveApplication.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

using namespace murmurly;
using namespace murmurly::testing;
using namespace std::chrono_literals;

namespace {

using Types = QList<QPair<QString, QByteArray>>;

const QString png = QStringLiteral("image/png");
const QString plainText = QStringLiteral("text/plain");
const QString hintType = QStringLiteral("x-kde-passwordManagerHint");
// The bytes of a one-pixel PNG picture.
const QByteArray pictureBytes = QByteArray::fromBase64(
    "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mP8z8DwHwAFBQIAX8jx0gAAAABJRU5ErkJggg==");

std::optional<QByteArray> bytesOf(const Types& types, const QString& type) {
    for (const auto& [name, bytes] : types)
        if (name == type) return bytes;
    return std::nullopt;
}

std::optional<QByteArray> bytesOf(const ClipboardSnapshot& snapshot, const QString& type) {
    if (snapshot.isEmpty()) return std::nullopt;
    return snapshot.first().data(type);
}

QCoro::Task<> insertThenNote(TextInserter& inserter, QString text, bool& done) {
    co_await inserter.insert(std::move(text));
    done = true;
}

// The clipboard as the window sees it once it shows what `expected` describes, or as it last saw
// it after 10 s: the window learns of a new selection through an event that may reach it after the
// command asking it to look.
template <typename Expected>
std::optional<Types> clipboardOnceItShows(TextFieldWindowProcess& window, Expected expected) {
    std::optional<Types> seen;
    waitUntil(
        [&] {
            seen = window.clipboard();
            return seen && expected(*seen);
        },
        10s);
    return seen;
}

// Another Wayland client that owns the clipboard (tests/support/WaylandClipboardOwner.cpp). The
// text-field window cannot be that client: a Wayland window may set the selection only in answer
// to input it received, and sway ignores it otherwise.
class ClipboardOwner {
public:
    ClipboardOwner(const HeadlessSway& sway, const QStringList& arguments) {
        m_process.setProcessEnvironment(sway.clientEnvironment(QProcessEnvironment::systemEnvironment()));
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        QObject::connect(&m_process, &QProcess::readyReadStandardOutput,
                         [this] { m_output += m_process.readAllStandardOutput(); });
        m_process.start(QStringLiteral(MURMURLY_WAYLAND_CLIPBOARD_OWNER), arguments);
        m_owner = waitUntil([this] { return m_output.contains("owner\n"); }, 15s);
    }
    ~ClipboardOwner() {
        m_process.closeWriteChannel();
        if (!m_process.waitForFinished(5000)) {
            m_process.kill();
            m_process.waitForFinished(3000);
        }
    }
    bool isOwner() const { return m_owner; }
    const QByteArray& output() const { return m_output; }

private:
    QProcess m_process;
    QByteArray m_output;
    bool m_owner = false;
};

class WaylandTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(sway.isRunning()) << sway.error().toStdString(); }

    HeadlessSway sway;
};

class WaylandTextInserterTest : public WaylandTest {
protected:
    void SetUp() override {
        WaylandTest::SetUp();
        window.emplace(QStringList{}, sway.clientEnvironment(QProcessEnvironment::systemEnvironment()));
        ASSERT_TRUE(window->isReady()) << sway.log().toStdString();
        clipboard.emplace(sway.waylandDisplay());
        ASSERT_TRUE(clipboard->isAvailable());
        pasteKeys.emplace(sway.waylandDisplay());
        ASSERT_TRUE(pasteKeys->isAvailable());
        inserter.emplace(*clipboard, *pasteKeys, clock);
    }

    void TearDown() override { inserter.reset(); }

    // Inserts and lets the wait end once the window has pasted, however slow the machine is.
    bool insertNow(const QString& text) {
        bool done = false;
        auto task = insertThenNote(*inserter, text, done);
        const bool pasted = window->waitForText(text, 15000);
        clock.advance(std::chrono::milliseconds(inserter->restoreDelayMilliseconds()));
        return pasted && done;
    }

    std::optional<TextFieldWindowProcess> window;
    std::optional<DataControlClipboard> clipboard;
    std::optional<VirtualKeyboardPasteKeys> pasteKeys;
    ManualClock clock;
    std::optional<TextInserter> inserter;
};

} // namespace

TEST_F(WaylandTextInserterTest, AnImageWithItsTextTwinComesBackWithTheSameBytesAndTheWordArrives) {
    ClipboardOwner owner(sway, {QStringLiteral("--type"), png, QString::fromLatin1(pictureBytes.toBase64()),
                                QStringLiteral("--type"), plainText,
                                QString::fromLatin1(QByteArray("a red square").toBase64())});
    ASSERT_TRUE(owner.isOwner());
    const auto before =
        clipboardOnceItShows(*window, [](const Types& types) { return bytesOf(types, png) == pictureBytes; });
    ASSERT_TRUE(before.has_value());
    ASSERT_EQ(bytesOf(*before, plainText), QByteArray("a red square"));

    ASSERT_TRUE(insertNow(QStringLiteral("word")));
    EXPECT_EQ(window->keyEventsOf(0x76).value(0), QStringLiteral("press 76 C")); // Ctrl+V, nothing else

    // The owner gave the clipboard up to the text; what comes back is this program's copy.
    const auto after =
        clipboardOnceItShows(*window, [](const Types& types) { return bytesOf(types, png).has_value(); });
    ASSERT_TRUE(after.has_value());
    EXPECT_EQ(bytesOf(*after, png), pictureBytes);
    EXPECT_EQ(bytesOf(*after, plainText), QByteArray("a red square"));
    EXPECT_FALSE(bytesOf(*after, hintType).has_value());
    EXPECT_TRUE(owner.output().contains("cancelled"));
}

TEST_F(WaylandTextInserterTest, AnEmptyClipboardIsEmptyAgainAfterwards) {
    ASSERT_TRUE(clipboard->snapshot().isEmpty()); // a fresh compositor has no selection
    ASSERT_TRUE(insertNow(QStringLiteral("nothing stays")));
    const auto after = clipboardOnceItShows(*window, [](const Types& types) { return types.isEmpty(); });
    ASSERT_TRUE(after.has_value());
    EXPECT_TRUE(after->isEmpty()) << after->size();
    EXPECT_TRUE(clipboard->snapshot().isEmpty());
}

TEST_F(WaylandTextInserterTest, TheTransientTextIsMarkedForClipboardManagers) {
    auto task = inserter->insert(QStringLiteral("secret words"));
    ASSERT_TRUE(window->waitForText(QStringLiteral("secret words"), 15000));
    const auto during = clipboardOnceItShows(
        *window, [](const Types& types) { return bytesOf(types, plainText) == QByteArray("secret words"); });
    ASSERT_TRUE(during.has_value());
    EXPECT_EQ(bytesOf(*during, hintType), QByteArray("secret"));
    clock.advance(180ms);
    EXPECT_TRUE(task.isReady());
}

TEST_F(WaylandTextInserterTest, AChangeByAnotherClientDuringTheWaitIsOverwritten) {
    ClipboardOwner mine(
        sway, {QStringLiteral("--type"), plainText, QString::fromLatin1(QByteArray("mine").toBase64())});
    ASSERT_TRUE(mine.isOwner());

    auto task = inserter->insert(QStringLiteral("word"));
    ASSERT_TRUE(window->waitForText(QStringLiteral("word"), 15000));
    ClipboardOwner theirs(
        sway, {QStringLiteral("--type"), plainText, QString::fromLatin1(QByteArray("theirs").toBase64())});
    ASSERT_TRUE(theirs.isOwner());
    ASSERT_TRUE(clipboardOnceItShows(
        *window, [](const Types& types) { return bytesOf(types, plainText) == QByteArray("theirs"); }));
    EXPECT_FALSE(task.isReady());

    clock.advance(180ms);
    EXPECT_TRUE(task.isReady());
    const auto after = clipboardOnceItShows(
        *window, [](const Types& types) { return bytesOf(types, plainText) == QByteArray("mine"); });
    ASSERT_TRUE(after.has_value());
    EXPECT_EQ(bytesOf(*after, plainText), QByteArray("mine"));
}

TEST_F(WaylandTextInserterTest, WithAltHeldOnTheKeyboardTheChordIsStillCtrlV) {
    WaylandTestKeyboard keyboard(sway.waylandDisplay());
    ASSERT_TRUE(keyboard.isOpen());
    ASSERT_TRUE(keyboard.press(WaylandTestKeyboard::rightAlt));
    ASSERT_TRUE(waitUntil([&] { return !window->keyEvents().isEmpty(); }, 10s)); // the Alt press arrived
    ASSERT_TRUE(insertNow(QStringLiteral("Word 1")));
    EXPECT_EQ(window->keyEventsOf(0x76).value(0), QStringLiteral("press 76 C"))
        << window->keyEvents().join(QLatin1Char(',')).toStdString();
    EXPECT_TRUE(keyboard.release(WaylandTestKeyboard::rightAlt));
}

TEST_F(WaylandTextInserterTest, EveryTypeOfTheSelectionIsInTheSnapshotInTheOfferedOrder) {
    ClipboardOwner owner(sway, {QStringLiteral("--type"), QStringLiteral("text/html"),
                                QString::fromLatin1(QByteArray("<b>bold</b>").toBase64()),
                                QStringLiteral("--type"), QStringLiteral("application/x-custom"),
                                QString::fromLatin1(QByteArray("\x00\x01\xff", 3).toBase64())});
    ASSERT_TRUE(owner.isOwner());
    ClipboardSnapshot snapshot;
    ASSERT_TRUE(waitUntil(
        [&] {
            return (snapshot = clipboard->snapshot()).size() == 1 && snapshot.first().entries().size() == 2;
        },
        10s));
    EXPECT_EQ(snapshot.first().entries().at(0),
              ClipboardItem::Entry(QStringLiteral("text/html"), "<b>bold</b>"));
    EXPECT_EQ(snapshot.first().entries().at(1),
              ClipboardItem::Entry(QStringLiteral("application/x-custom"), QByteArray("\x00\x01\xff", 3)));
}

TEST_F(WaylandTextInserterTest, ATypeWhoseOwnerNeverWritesIsLeftOutWithinTheLimit) {
    ClipboardOwner owner(sway, {QStringLiteral("--type"), plainText,
                                QString::fromLatin1(QByteArray("kept").toBase64()), QStringLiteral("--stall"),
                                QStringLiteral("image/png")});
    ASSERT_TRUE(owner.isOwner());
    ASSERT_TRUE(
        waitUntil([&] { return bytesOf(clipboard->snapshot(), plainText) == QByteArray("kept"); }, 20s));
    QElapsedTimer took;
    took.start();
    const ClipboardSnapshot snapshot = clipboard->snapshot();
    EXPECT_LT(took.elapsed(), DataControlClipboard::snapshotLimit.count() + 10000); // bounded, however busy
    ASSERT_EQ(snapshot.size(), 1);
    EXPECT_EQ(snapshot.first().data(plainText), QByteArray("kept"));
    EXPECT_FALSE(snapshot.first().data(png).has_value());

    ASSERT_TRUE(insertNow(QStringLiteral("still typed")));
    const auto after = clipboardOnceItShows(
        *window, [](const Types& types) { return bytesOf(types, plainText) == QByteArray("kept"); });
    ASSERT_TRUE(after.has_value());
    EXPECT_EQ(bytesOf(*after, plainText), QByteArray("kept"));
}

TEST_F(WaylandTextInserterTest, A50MiBTypeIsReadAndOfferedBackWithTheSameBytes) {
    constexpr qsizetype size = 50 << 20;
    ClipboardOwner owner(
        sway, {QStringLiteral("--large"), QStringLiteral("application/octet-stream"), QString::number(size)});
    ASSERT_TRUE(owner.isOwner());
    ASSERT_TRUE(insertNow(QStringLiteral("big")));
    // The owner lost the selection to the text and then to the restore; what is there now is ours.
    const ClipboardSnapshot after = clipboard->snapshot();
    const auto bytes = bytesOf(after, QStringLiteral("application/octet-stream"));
    ASSERT_TRUE(bytes.has_value());
    ASSERT_EQ(bytes->size(), size);
    bool same = true;
    for (qsizetype at = 0; at < size && same; ++at)
        same = static_cast<unsigned char>(bytes->at(at)) == static_cast<unsigned char>(at * 7 % 251);
    EXPECT_TRUE(same);
}

TEST_F(WaylandTextInserterTest, ACompositorThatGoesAwayMidInsertionEndsTheInsertion) {
    bool done = false;
    auto task = insertThenNote(*inserter, QStringLiteral("lost"), done);
    ASSERT_TRUE(window->waitForText(QStringLiteral("lost"), 15000));
    sway.kill();
    QElapsedTimer took;
    took.start();
    clock.advance(180ms);
    EXPECT_TRUE(done);
    EXPECT_TRUE(waitUntil([&] { return !clipboard->isAvailable(); }, 10s));
    EXPECT_TRUE(clipboard->snapshot().isEmpty());
    clipboard->writeText(QStringLiteral("nowhere"));
    EXPECT_FALSE(pasteKeys->paste());
    EXPECT_LT(took.elapsed(), 20000);
}

TEST(WaylandWithoutCompositor, NothingAnswersAndNothingHangs) {
    const QByteArray nowhere = "/nonexistent/wayland-murmurly-test";
    QElapsedTimer took;
    took.start();
    DataControlClipboard clipboard(nowhere);
    EXPECT_FALSE(clipboard.isAvailable());
    EXPECT_TRUE(clipboard.snapshot().isEmpty());
    clipboard.writeText(QStringLiteral("nowhere"));
    clipboard.restore({});
    VirtualKeyboardPasteKeys keys(nowhere);
    EXPECT_FALSE(keys.isAvailable());
    EXPECT_FALSE(keys.paste());
    EXPECT_LT(took.elapsed(), 10000);
}

TEST_F(WaylandTest, TheFocusedApplicationIsTheActivatedWindowsAppIdAndFollowsTheFocus) {
    const QProcessEnvironment environment = sway.clientEnvironment(QProcessEnvironment::systemEnvironment());
    TextFieldWindowProcess notes({QStringLiteral("--class"), QStringLiteral("org.example.Notes")},
                                 environment);
    ASSERT_TRUE(notes.isReady()) << sway.log().toStdString();
    WaylandActiveApplication windows(sway.waylandDisplay());
    ASSERT_TRUE(windows.isAvailable());
    EXPECT_TRUE(
        waitUntil([&] { return windows.focusedAppId() == QStringLiteral("org.example.Notes"); }, 10s));
    EXPECT_EQ(windows.focused(),
              (FocusedApplication{QStringLiteral("org.example.Notes"), QStringLiteral("org.example.Notes")}));
    {
        // A new window takes the focus; when it closes, the focus goes back.
        TextFieldWindowProcess terminal({QStringLiteral("--class"), QStringLiteral("foot")}, environment);
        ASSERT_TRUE(terminal.isReady());
        EXPECT_TRUE(waitUntil([&] { return windows.focusedAppId() == QStringLiteral("foot"); }, 10s));
    }
    EXPECT_TRUE(
        waitUntil([&] { return windows.focusedAppId() == QStringLiteral("org.example.Notes"); }, 10s));
}

TEST_F(WaylandTest, TheFocusedApplicationIsNamedByTheGivenNaming) {
    TextFieldWindowProcess notes({QStringLiteral("--class"), QStringLiteral("org.example.Notes")},
                                 sway.clientEnvironment(QProcessEnvironment::systemEnvironment()));
    ASSERT_TRUE(notes.isReady());
    WaylandActiveApplication windows(sway.waylandDisplay(), [](const QString& appId) {
        return FocusedApplication{appId, QStringLiteral("Example Notes")};
    });
    ASSERT_TRUE(waitUntil([&] { return windows.focused().has_value(); }, 10s));
    EXPECT_EQ(windows.focused()->displayName, QStringLiteral("Example Notes"));
}

TEST_F(WaylandTextInserterTest, ATerminalFocusedGetsCtrlShiftV) {
    const QProcessEnvironment environment = sway.clientEnvironment(QProcessEnvironment::systemEnvironment());
    WaylandActiveApplication windows(sway.waylandDisplay());
    ASSERT_TRUE(windows.isAvailable());
    pasteKeys->setTerminalCheck([&] { return windows.focusedAppId() == QStringLiteral("foot"); });
    // A window that pastes on Ctrl+Shift+V only, as terminals do.
    window.emplace(
        QStringList{QStringLiteral("--class"), QStringLiteral("foot"), QStringLiteral("--terminal")},
        environment);
    ASSERT_TRUE(window->isReady());
    ASSERT_TRUE(waitUntil([&] { return windows.focusedAppId() == QStringLiteral("foot"); }, 10s));
    ASSERT_TRUE(insertNow(QStringLiteral("ls")));
    EXPECT_EQ(window->keyEventsOf(0x56).value(0), QStringLiteral("press 56 SC") /* V with Shift is "V" */)
        << window->keyEvents().join(QLatin1Char(',')).toStdString();
}

TEST(WaylandActiveApplicationWithoutCompositor, NothingIsFocusedAndNothingWaits) {
    QElapsedTimer took;
    took.start();
    WaylandActiveApplication windows("/nonexistent/wayland-murmurly-test");
    EXPECT_FALSE(windows.isAvailable());
    EXPECT_EQ(windows.focused(), std::nullopt);
    EXPECT_LT(took.elapsed(), 10000);
}
