// GoogleTest entry for every test executable: a Qt application object first, so that timers,
// coroutines awaiting Qt objects and QStandardPaths behave as in the program.
#include <QCoreApplication>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
