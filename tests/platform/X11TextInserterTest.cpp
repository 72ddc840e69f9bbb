// Insertion on a real X server: the Qt clipboard, the XTest paste chord and a real window with a
// focused line edit, which also reads the clipboard back as another application would.
#include "ManualClock.h"
#include "MemoryDefaults.h"
#include "TextFieldWindowProcess.h"
#include "WaitUntil.h"
#include "XTestKeyboard.h"
#include "XvfbServer.h"
#include "output/TextInserter.h"
#include "platform/linux/QtClipboard.h"
#include "platform/linux/XTestPasteKeys.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

#include <gtest/gtest.h>

#include <X11/keysym.h>

using namespace murmurly;
using namespace murmurly::testing;
using namespace std::chrono_literals;

namespace {

using Types = QList<QPair<QString, QByteArray>>;

const QString png = QStringLiteral("image/png");
const QString plainText = QStringLiteral("text/plain");

std::optional<QByteArray> bytesOf(const Types& types, const QString& type) {
    for (const auto& [name, bytes] : types)
        if (name == type) return bytes;
    return std::nullopt;
}

// Whether this process's clipboard shows the type (the other client's content has arrived).
bool clipboardOffers(const QString& type) {
    const QMimeData* data = QGuiApplication::clipboard()->mimeData();
    return data && data->hasFormat(type);
}

QCoro::Task<> insertThenNote(TextInserter& inserter, QString text, bool& done) {
    co_await inserter.insert(std::move(text));
    done = true;
}

// The clipboard as the window sees it once it shows what `expected` describes, or as it last saw
// it when 5 s passed. The window learns of a new clipboard owner through an X event that may reach
// it after the command asking it to look.
template <typename Expected>
std::optional<Types> clipboardOnceItShows(TextFieldWindowProcess& window, Expected expected) {
    std::optional<Types> seen;
    waitUntil([&] {
        seen = window.clipboard();
        return seen && expected(*seen);
    });
    return seen;
}

class X11TextInserterTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(window.isReady()); }

    // Inserts and lets the wait end once the window has pasted, however slow the machine is; the
    // length of the wait itself is the inserter's unit tests' business.
    bool insertNow(const QString& text) {
        bool done = false;
        auto task = insertThenNote(inserter, text, done);
        const bool pasted = window.waitForText(text);
        clock.advance(std::chrono::milliseconds(inserter.restoreDelayMilliseconds()));
        return pasted && done;
    }

    MemoryDefaults defaults;
    QtClipboard clipboard;
    XTestPasteKeys pasteKeys{defaults};
    ManualClock clock;
    TextInserter inserter{clipboard, pasteKeys, clock};
    TextFieldWindowProcess window;
};

class X11TerminalPasteTest : public ::testing::Test {
protected:
    MemoryDefaults defaults;
    QtClipboard clipboard;
    XTestPasteKeys pasteKeys{defaults};
    ManualClock clock;
    TextInserter inserter{clipboard, pasteKeys, clock};
};

} // namespace

TEST_F(X11TextInserterTest, AnImageWithItsTextTwinComesBackWithTheSameBytesAndTheWordArrives) {
    ASSERT_TRUE(window.command("clip-image"));
    ASSERT_TRUE(waitUntil([] { return clipboardOffers(png); }));
    const auto before = window.clipboard();
    ASSERT_TRUE(before.has_value());
    ASSERT_TRUE(bytesOf(*before, png).has_value());
    ASSERT_TRUE(bytesOf(*before, plainText).has_value());

    ASSERT_TRUE(insertNow(QStringLiteral("word")));
    EXPECT_TRUE(window.waitForText(QStringLiteral("word")));
    EXPECT_EQ(window.keyEventsOf(XK_v).value(0), QStringLiteral("press 76 C")); // Ctrl+V, nothing else

    const auto after =
        clipboardOnceItShows(window, [](const Types& types) { return bytesOf(types, png).has_value(); });
    ASSERT_TRUE(after.has_value());
    EXPECT_EQ(bytesOf(*after, png), bytesOf(*before, png));
    EXPECT_EQ(bytesOf(*after, plainText), bytesOf(*before, plainText));
    EXPECT_FALSE(bytesOf(*after, QtClipboard::passwordManagerHintType).has_value());
}

TEST_F(X11TextInserterTest, SeveralTypesComeBackInTheSameNumberAndOrderWithTheSameBytes) {
    // An X clipboard holds one item, with as many types as its owner offers.
    ASSERT_TRUE(window.command("clip-several"));
    const QString own = QStringLiteral("application/x-four-kinds");
    ASSERT_TRUE(waitUntil([&] { return clipboardOffers(own); }));
    const auto before = window.clipboard();
    ASSERT_TRUE(before.has_value());
    QStringList beforeTypes;
    for (const auto& [type, bytes] : *before)
        beforeTypes << type;
    for (const QString& type : {plainText, QStringLiteral("text/html"), QStringLiteral("text/uri-list"), own})
        ASSERT_TRUE(beforeTypes.contains(type)) << type.toStdString();

    bool done = false;
    auto task = insertThenNote(inserter, QStringLiteral("word"), done);
    ASSERT_TRUE(window.waitForText(QStringLiteral("word")));
    // While the paste happens the clipboard holds the word alone: the types above are gone.
    const auto during = clipboardOnceItShows(
        window, [](const Types& types) { return bytesOf(types, plainText) == QByteArray("word"); });
    ASSERT_TRUE(during.has_value());
    EXPECT_FALSE(bytesOf(*during, own).has_value());
    EXPECT_FALSE(bytesOf(*during, QStringLiteral("text/html")).has_value());
    clock.advance(std::chrono::milliseconds(inserter.restoreDelayMilliseconds()));
    ASSERT_TRUE(done);

    const auto after =
        clipboardOnceItShows(window, [&](const Types& types) { return bytesOf(types, own).has_value(); });
    ASSERT_TRUE(after.has_value());
    // Every type that was there, once, in its former order, with its bytes; nothing of the word.
    Types restored;
    for (const auto& entry : *after)
        if (beforeTypes.contains(entry.first)) restored << entry;
    EXPECT_EQ(restored, *before);
    EXPECT_EQ(bytesOf(*after, plainText), QByteArray("four kinds"));
    EXPECT_EQ(bytesOf(*after, own), QByteArray("\x00\x01\x02\xff", 4));
}

TEST_F(X11TextInserterTest, AnEmptyClipboardIsEmptyAgainAfterwards) {
    QGuiApplication::clipboard()->clear(); // in case an earlier test in this process left content
    const auto before = clipboardOnceItShows(window, [](const Types& types) { return types.isEmpty(); });
    ASSERT_TRUE(before.has_value());
    ASSERT_TRUE(before->isEmpty());
    ASSERT_TRUE(insertNow(QStringLiteral("nothing stays")));
    EXPECT_TRUE(window.waitForText(QStringLiteral("nothing stays")));
    const auto after = clipboardOnceItShows(window, [](const Types& types) { return types.isEmpty(); });
    ASSERT_TRUE(after.has_value());
    EXPECT_TRUE(after->isEmpty()) << after->size();
}

TEST_F(X11TextInserterTest, TheTransientTextIsMarkedForClipboardManagers) {
    auto task = inserter.insert(QStringLiteral("secret words"));
    ASSERT_TRUE(window.waitForText(QStringLiteral("secret words")));
    const auto during = clipboardOnceItShows(
        window, [](const Types& types) { return bytesOf(types, plainText) == QByteArray("secret words"); });
    ASSERT_TRUE(during.has_value());
    EXPECT_EQ(bytesOf(*during, QtClipboard::passwordManagerHintType), QByteArray("secret"));
    EXPECT_EQ(bytesOf(*during, plainText), QByteArray("secret words"));
    clock.advance(180ms);
    EXPECT_TRUE(task.isReady());
}

TEST_F(X11TextInserterTest, AChangeByAnotherClientDuringTheWaitIsOverwritten) {
    ASSERT_TRUE(window.command("clip-text", "mine"));
    ASSERT_TRUE(waitUntil([] { return QGuiApplication::clipboard()->text() == QStringLiteral("mine"); }));

    auto task = inserter.insert(QStringLiteral("word"));
    ASSERT_TRUE(window.waitForText(QStringLiteral("word")));
    ASSERT_TRUE(window.command("clip-text", "theirs"));
    ASSERT_TRUE(waitUntil([] { return QGuiApplication::clipboard()->text() == QStringLiteral("theirs"); }));
    EXPECT_FALSE(task.isReady());

    clock.advance(180ms);
    EXPECT_TRUE(task.isReady());
    const auto after = clipboardOnceItShows(
        window, [](const Types& types) { return bytesOf(types, plainText) == QByteArray("mine"); });
    ASSERT_TRUE(after.has_value());
    EXPECT_EQ(bytesOf(*after, plainText), QByteArray("mine"));
}

TEST_F(X11TextInserterTest, WithShiftHeldTheTextStillArrivesUnchanged) {
    XTestKeyboard keyboard;
    ASSERT_TRUE(keyboard.isOpen());
    keyboard.press(XK_Shift_L);
    ASSERT_TRUE(window.command("set-text", "")); // let the Shift press reach the window first
    ASSERT_TRUE(insertNow(QStringLiteral("Word 1")));
    EXPECT_TRUE(window.waitForText(QStringLiteral("Word 1")));
    EXPECT_EQ(window.keyEventsOf(XK_v).value(0), QStringLiteral("press 76 C"))
        << window.keyEvents().join(QLatin1Char(',')).toStdString();
    EXPECT_TRUE(keyboard.isDown(XK_Shift_L)); // held again after the chord, as the user holds it
    keyboard.release(XK_Shift_L);
}

TEST_F(X11TerminalPasteTest, ATerminalWindowGetsCtrlShiftV) {
    TextFieldWindowProcess terminal(
        {QStringLiteral("--class"), QStringLiteral("XTerm"), QStringLiteral("--terminal")});
    ASSERT_TRUE(terminal.isReady());
    bool done = false;
    auto task = insertThenNote(inserter, QStringLiteral("ls -l"), done);
    EXPECT_TRUE(terminal.waitForText(QStringLiteral("ls -l")));
    EXPECT_EQ(terminal.keyEventsOf(XK_V).value(0), QStringLiteral("press 56 SC") /* V with Shift is "V" */)
        << terminal.keyEvents().join(QLatin1Char(',')).toStdString();
    clock.advance(180ms);
    EXPECT_TRUE(done);
}

TEST_F(X11TerminalPasteTest, TheTerminalListIsExtendedByThePreference) {
    TextFieldWindowProcess terminal(
        {QStringLiteral("--class"), QStringLiteral("Shellbox"), QStringLiteral("--terminal")});
    ASSERT_TRUE(terminal.isReady());
    defaults.setString(XTestPasteKeys::terminalClassesKey, QStringLiteral("Otherterm, shellbox"));
    bool done = false;
    auto task = insertThenNote(inserter, QStringLiteral("pwd"), done);
    EXPECT_TRUE(terminal.waitForText(QStringLiteral("pwd")));
    EXPECT_EQ(terminal.keyEventsOf(XK_V).value(0), QStringLiteral("press 56 SC") /* V with Shift is "V" */)
        << terminal.keyEvents().join(QLatin1Char(',')).toStdString();
    clock.advance(180ms);
    EXPECT_TRUE(done);
}

TEST_F(X11TerminalPasteTest, AnOrdinaryWindowIsNoTerminal) {
    EXPECT_TRUE(pasteKeys.isTerminal(QStringLiteral("xterm"), QStringLiteral("XTerm")));
    EXPECT_TRUE(
        pasteKeys.isTerminal(QStringLiteral("gnome-terminal-server"), QStringLiteral("Gnome-terminal")));
    EXPECT_FALSE(pasteKeys.isTerminal(QStringLiteral("murmurly_text_field_window"),
                                      QStringLiteral("Murmurly_text_field_window")));
    EXPECT_FALSE(pasteKeys.isTerminal(QStringLiteral("shellbox"), QStringLiteral("Shellbox")));
}

TEST(XTestPasteKeys, NoChordWhenTheDisplayCannotBeOpened) {
    const QByteArray deadDisplay = XvfbServer::unusedDisplayName();
    MemoryDefaults defaults;
    XTestPasteKeys keys(defaults, deadDisplay);
    EXPECT_FALSE(keys.paste());
}

TEST_F(X11TextInserterTest, TheTextReachesTheClipboardEvenWhenAnotherClientCopiedAfterOurLastEvent) {
    // The X server ignores a claim on the clipboard stamped earlier than the current owner's: the
    // window copies after a key event of its own, which this process never sees.
    keepRunning(std::chrono::milliseconds(300));
    XTestKeyboard keyboard;
    ASSERT_TRUE(keyboard.isOpen());
    keyboard.tap(XK_x);
    ASSERT_TRUE(window.waitForText(QStringLiteral("x")));
    ASSERT_TRUE(window.command("clip-text", "copied just now"));
    ASSERT_TRUE(
        waitUntil([] { return QGuiApplication::clipboard()->text() == QStringLiteral("copied just now"); }));

    clipboard.writeText(QStringLiteral("dictated"));
    const auto during = clipboardOnceItShows(
        window, [](const Types& types) { return bytesOf(types, plainText) == QByteArray("dictated"); });
    ASSERT_TRUE(during.has_value());
    EXPECT_EQ(bytesOf(*during, plainText), QByteArray("dictated"));
}
