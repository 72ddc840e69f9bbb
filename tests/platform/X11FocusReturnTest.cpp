// The focus handed back on a real X server (no window manager: the server's own focus call), to
// another application's text field, which then receives a paste.
#include "platform/linux/X11FocusReturn.h"
#include "MemoryDefaults.h"
#include "TextFieldWindowProcess.h"
#include "WaitUntil.h"
#include "core/SystemClock.h"
#include "output/TextInserter.h"
#include "platform/linux/QtClipboard.h"
#include "platform/linux/XTestPasteKeys.h"

#include <QTest>
#include <QWindow>

#include <gtest/gtest.h>

#include <memory>
#include <optional>

using namespace murmurly;
using namespace murmurly::testing;
using namespace std::chrono_literals;

namespace {

QCoro::Task<> returnFocusThenInsert(FocusReturn& focus, TextInserter& inserter, QString text,
                                    std::optional<bool>& returned, bool& done) {
    returned = co_await focus.returnFocus(1000ms);
    co_await inserter.insert(std::move(text));
    done = true;
}

QCoro::Task<> noteReturn(FocusReturn& focus, std::optional<bool>& returned) {
    returned = co_await focus.returnFocus(1000ms);
}

// A window of this program that takes the keyboard focus, as the settings window does when it
// opens.
std::unique_ptr<QWindow> showOwnWindow() {
    auto window = std::make_unique<QWindow>();
    window->setTitle(QStringLiteral("Own window"));
    window->resize(240, 120);
    window->show();
    window->requestActivate();
    return window;
}

} // namespace

TEST(X11FocusReturn, TheTextArrivesInTheWindowTheFocusCameFrom) {
    TextFieldWindowProcess field;
    ASSERT_TRUE(field.isReady());
    SystemClock clock;
    X11FocusReturn focus(clock);
    focus.rememberFocusedWindow();
    const unsigned long fieldWindow = focus.rememberedWindow();
    ASSERT_NE(fieldWindow, 0u);

    const std::unique_ptr<QWindow> own = showOwnWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(own.get()));
    // Noting while one of the program's own windows has the focus keeps the window noted before.
    focus.rememberFocusedWindow();
    EXPECT_EQ(focus.rememberedWindow(), fieldWindow);

    MemoryDefaults defaults;
    QtClipboard clipboard;
    XTestPasteKeys pasteKeys{defaults};
    TextInserter inserter{clipboard, pasteKeys, clock};
    std::optional<bool> returned;
    bool done = false;
    auto task = returnFocusThenInsert(focus, inserter, QStringLiteral("put in again"), returned, done);
    ASSERT_TRUE(waitUntil([&] { return done; }, 20s));
    EXPECT_EQ(returned, true);
    EXPECT_TRUE(field.waitForText(QStringLiteral("put in again"))) << field.text().toStdString();
    EXPECT_TRUE(waitUntil([&] { return !own->isActive(); }));
}

TEST(X11FocusReturn, WithNoWindowNotedThereIsNothingToReturnTo) {
    SystemClock clock;
    X11FocusReturn focus(clock);
    EXPECT_EQ(focus.rememberedWindow(), 0u);
    std::optional<bool> returned;
    auto task = noteReturn(focus, returned);
    ASSERT_TRUE(waitUntil([&] { return returned.has_value(); }, 20s));
    EXPECT_EQ(returned, false);
}

TEST(X11FocusReturn, AWindowClosedMeanwhileIsNotReturnedTo) {
    auto field = std::make_unique<TextFieldWindowProcess>();
    ASSERT_TRUE(field->isReady());
    SystemClock clock;
    X11FocusReturn focus(clock);
    focus.rememberFocusedWindow();
    ASSERT_NE(focus.rememberedWindow(), 0u);
    const std::unique_ptr<QWindow> own = showOwnWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(own.get()));

    field.reset(); // the application is closed while the settings window is open
    std::optional<bool> returned;
    auto task = noteReturn(focus, returned);
    ASSERT_TRUE(waitUntil([&] { return returned.has_value(); }, 20s));
    EXPECT_EQ(returned, false);
    EXPECT_EQ(focus.rememberedWindow(), 0u);
    EXPECT_TRUE(own->isActive());
}
