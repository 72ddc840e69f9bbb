// GoogleTest entry for the tests that need an X server: a private Xvfb is started first and becomes
// the DISPLAY of the process, then the Qt application object connects to it. The user's own
// display is never used. Built twice: with MURMURLY_TEST_WIDGETS the application object is a
// QApplication, for the widget tests; otherwise a QGuiApplication.
#include "XvfbServer.h"

#if MURMURLY_TEST_WIDGETS
#include <QApplication>
using TestApplication = QApplication;
#else
#include <QGuiApplication>
using TestApplication = QGuiApplication;
#endif

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
    bool listing = false;
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "--gtest_list_tests") == 0) listing = true;
    if (listing) {
        ::testing::InitGoogleTest(&argc, argv);
        return RUN_ALL_TESTS();
    }

    murmurly::testing::XvfbServer server;
    if (!server.isRunning()) {
        std::fprintf(stderr, "Could not start a private X server: %s\n", qPrintable(server.error()));
        return 1;
    }
    qputenv("DISPLAY", server.displayName());
    qputenv("QT_QPA_PLATFORM", "xcb");
    qunsetenv("WAYLAND_DISPLAY");
    TestApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
