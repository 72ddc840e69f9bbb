#pragma once

// The built program on a desktop of the test's own: a private X server (from the test main), a
// private session bus (with an unlocked gnome-keyring when a test needs a stored key), a private
// audio server whose null sink's monitor is the microphone, a private home, and another
// application's text field holding the keyboard focus. Tests drive the program only from outside:
// real key events, recordings played into the sink, its D-Bus properties and the files it writes.
#include "MurmurlyControl.h"
#include "PrivateKeyring.h"
#include "PrivatePulseServer.h"
#include "PrivateSessionBus.h"
#include "RunningMurmurly.h"
#include "TemporaryHome.h"
#include "TextFieldWindowProcess.h"
#include "XTestKeyboard.h"

#include <QString>
#include <QVariant>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>

namespace murmurly::testing {

// The WM_CLASS class of the text-field window the tests dictate into.
inline const QString textFieldWindowClass = QStringLiteral("Notepadish");

// A LibriVox sentence of the speech corpus.
QString sentence(const char* id);

class MurmurlyDesktopTest : public ::testing::Test {
protected:
    enum class SessionBus { plain, withKeyring };

    explicit MurmurlyDesktopTest(SessionBus kind = SessionBus::plain);

    void SetUp() override;
    void TearDown() override;

    // A preference in the program's settings.ini, written before the program starts.
    void setPreference(const QString& key, const QVariant& value);
    std::optional<QVariant> preference(const QString& key) const;

    // A property of the program's control object, or nothing while it does not answer.
    std::optional<QString> property(const QString& name);
    bool waitForState(const QString& state, std::chrono::milliseconds limit = std::chrono::seconds(20));

    // Starts the program and waits until it can dictate, then gives the focus back to the text
    // field (without a tray the program opens its settings window at start, which takes it).
    void startProgram();

    // Holds the trigger key (Right Alt) while the sentence plays, then lets it go.
    void dictateHolding(const QString& wavPath);
    // Waits for the inserted text; empty when none came.
    QString waitForInsertedText();

    TemporaryHome home;
    PrivatePulseServer pulse;
    TextFieldWindowProcess window{{QStringLiteral("--class"), textFieldWindowClass}};
    XTestKeyboard keyboard;
    std::unique_ptr<PrivateSessionBus> bus;
    std::unique_ptr<PrivateKeyring> keyring;
    std::optional<MurmurlyControl> control;
    std::unique_ptr<RunningMurmurly> program;

private:
    SessionBus m_busKind;
};

} // namespace murmurly::testing
