// The live key state on a real X server, asked in canonical key codes.
#include "platform/linux/X11KeyState.h"
#include "XTestKeyboard.h"
#include "XvfbServer.h"
#include "hotkey/KeyCodes.h"

#include <gtest/gtest.h>

#include <X11/keysym.h>

using namespace murmurly;
using namespace murmurly::testing;

TEST(X11KeyState, TellsWhetherTheTriggerIsDownNow) {
    XTestKeyboard keyboard;
    ASSERT_TRUE(keyboard.isOpen());
    X11KeyState state;
    EXPECT_FALSE(state.isKeyDown(KeyCodes::rightOption));
    keyboard.press(XK_Alt_R);
    EXPECT_TRUE(state.isKeyDown(KeyCodes::rightOption));
    EXPECT_FALSE(state.isKeyDown(KeyCodes::leftOption));
    keyboard.release(XK_Alt_R);
    EXPECT_FALSE(state.isKeyDown(KeyCodes::rightOption));

    keyboard.press(XK_F5);
    EXPECT_TRUE(state.isKeyDown(KeyCodes::f5));
    keyboard.release(XK_F5);
    EXPECT_FALSE(state.isKeyDown(KeyCodes::f5));

    keyboard.press(XK_a);
    EXPECT_TRUE(state.isKeyDown(0)); // A
    keyboard.release(XK_a);
    EXPECT_FALSE(state.isKeyDown(0));
}

TEST(X11KeyState, CodesOutsideTheKeyboardAreNeverDown) {
    X11KeyState state;
    EXPECT_FALSE(state.isKeyDown(-1));
    EXPECT_FALSE(state.isKeyDown(70000));
    EXPECT_FALSE(state.isKeyDown(KeyCodes::function)); // no Fn key on this keyboard
}

TEST(X11KeyState, AnUnreachableServerMeansNoKeyIsDown) {
    const QByteArray deadDisplay = XvfbServer::unusedDisplayName();
    X11KeyState state(deadDisplay);
    EXPECT_FALSE(state.isKeyDown(KeyCodes::rightOption));
}
