// GoogleTest entry for the widget tests: a private Xvfb is started first and becomes the DISPLAY
// of the process, then the Qt Widgets application object connects to it. The user's own
// display is never used.
#include "XvfbServer.h"

#include <QApplication>

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
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
