#pragma once

#include "MurmurlyControl.h"
#include "RunningMurmurly.h"
#include "TextFieldWindowProcess.h"
#include "WaitUntil.h"

#include <QProcess>
#include <QString>

#include <gtest/gtest.h>

#include <chrono>

namespace murmurly::testing {

// After a cancel of a recording while `player` still plays into it: the program says it was
// cancelled and goes back to idle, and, a while later, nothing was transcribed and the text field
// still holds `before`.
inline void expectCancelledWithNothingInserted(RunningMurmurly& program, MurmurlyControl& control,
                                               TextFieldWindowProcess& window, QProcess& player,
                                               const QString& before) {
    using namespace std::chrono_literals;
    EXPECT_TRUE(control.waitForState(QStringLiteral("idle"), 5s));
    EXPECT_TRUE(waitUntil([&] {
        return program.log().contains(QStringLiteral("Dictation cancelled by user"));
    })) << program.log().toStdString();
    player.kill();
    player.waitForFinished(3000);

    keepRunning(1500ms);
    EXPECT_EQ(window.text(), before);
    EXPECT_EQ(control.property(QStringLiteral("State")), QStringLiteral("idle"));
    EXPECT_FALSE(program.log().contains(QStringLiteral("Transcript:"))) << program.log().toStdString();
}

} // namespace murmurly::testing
