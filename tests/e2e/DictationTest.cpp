// Dictating with the trigger key, as a user does: held, tapped twice in toggle mode, cancelled
// with Esc, or tapped too briefly to mean anything.
#include "MurmurlyDesktop.h"

#include "CancelledDictation.h"

#include "SpeechCorpus.h"
#include "WaitUntil.h"
#include "core/AppController.h"

#include <X11/keysym.h>

#include <cstdio>

using namespace murmurly;
using namespace murmurly::testing;
using namespace std::chrono_literals;

namespace {

const QString plainText = QStringLiteral("text/plain");

// The plain-text bytes of the clipboard as the window reads it, or nothing.
std::optional<QByteArray> clipboardText(TextFieldWindowProcess& window) {
    const auto types = window.clipboard();
    if (!types) return std::nullopt;
    for (const auto& [type, bytes] : *types)
        if (type == plainText) return bytes;
    return std::nullopt;
}

class DictationTest : public MurmurlyDesktopTest {};

} // namespace

TEST_F(DictationTest, HoldingTheTriggerKeyTypesTheSpeechAndPutsTheClipboardBack) {
    startProgram();
    const QByteArray earlier = "copied before dictating";
    ASSERT_TRUE(window.command("clip-text", earlier));
    ASSERT_TRUE(waitUntil([&] { return clipboardText(window) == earlier; }));

    dictateHolding(sentence("sense_and_sensibility_01_austen_64kb-0890"));
    const QString text = waitForInsertedText();
    ASSERT_FALSE(text.isEmpty()) << program->log().toStdString();
    EXPECT_TRUE(waitForState(QStringLiteral("idle")));

    std::printf("inserted: \"%s\"\n", qPrintable(text));
    EXPECT_TRUE(text.endsWith(QLatin1Char(' ')) && !text.endsWith(QStringLiteral("  ")))
        << text.toStdString();
    const WordErrors errors = wordErrors(
        QStringLiteral("unless to be rather cold hearted and rather selfish is to be ill disposed"),
        text.trimmed());
    std::printf("word errors: %d of %d\n", errors.errors, errors.referenceWords);
    EXPECT_LE(errors.rate(), 50.0) << text.toStdString();

    // The text went in through the clipboard, which then holds the earlier content again.
    std::optional<QByteArray> after;
    EXPECT_TRUE(waitUntil(
        [&] {
            after = clipboardText(window);
            return after == earlier;
        },
        5s))
        << (after ? after->toStdString() : std::string("(no text on the clipboard)"));
    EXPECT_EQ(window.text(), text);
}

TEST_F(DictationTest, InToggleModeOneTapStartsAndTheNextInserts) {
    setPreference(AppController::captureModeKey, QStringLiteral("toggle"));
    startProgram();

    keyboard.tap(XK_Alt_R);
    ASSERT_TRUE(waitForState(QStringLiteral("recording"))) << program->log().toStdString();
    ASSERT_TRUE(pulse.waitForRecorder()) << program->log().toStdString();
    ASSERT_TRUE(pulse.play(sentence("sense_and_sensibility_01_austen_64kb-0930")));
    keepRunning(300ms);
    // Letting go of the key did not end it.
    EXPECT_EQ(property(QStringLiteral("State")), QStringLiteral("recording"));
    keyboard.tap(XK_Alt_R);

    const QString text = waitForInsertedText();
    ASSERT_FALSE(text.isEmpty()) << program->log().toStdString();
    EXPECT_TRUE(waitForState(QStringLiteral("idle")));
    std::printf("inserted: \"%s\"\n", qPrintable(text));
    EXPECT_TRUE(text.endsWith(QLatin1Char(' '))) << text.toStdString();
    EXPECT_LE(
        wordErrors(QStringLiteral("he might even have been made amiable himself"), text.trimmed()).rate(),
        50.0)
        << text.toStdString();
}

TEST_F(DictationTest, EscWhileRecordingInToggleModeInsertsNothing) {
    setPreference(AppController::captureModeKey, QStringLiteral("toggle"));
    startProgram();
    ASSERT_TRUE(window.command("set-text", "before"));
    ASSERT_TRUE(window.waitForText(QStringLiteral("before")));

    keyboard.tap(XK_Alt_R);
    ASSERT_TRUE(waitForState(QStringLiteral("recording"))) << program->log().toStdString();
    ASSERT_TRUE(pulse.waitForRecorder()) << program->log().toStdString();
    std::unique_ptr<QProcess> player =
        pulse.startPlaying(sentence("sense_and_sensibility_01_austen_64kb-0870"));
    keepRunning(1500ms);
    keyboard.tap(XK_Escape);

    expectCancelledWithNothingInserted(*program, *control, window, *player, QStringLiteral("before"));
}

TEST_F(DictationTest, ABriefTapInHoldModeInsertsNothing) {
    startProgram();
    ASSERT_TRUE(window.command("set-text", "before"));
    ASSERT_TRUE(window.waitForText(QStringLiteral("before")));

    std::unique_ptr<QProcess> player =
        pulse.startPlaying(sentence("sense_and_sensibility_01_austen_64kb-0870"));
    // Press and release go out together: a pause between them here could stretch past the tap
    // limit on a busy machine.
    keyboard.tap(XK_Alt_R);

    EXPECT_TRUE(waitUntil([&] { return program->log().contains(QStringLiteral("Accidental tap")); }))
        << program->log().toStdString();
    EXPECT_TRUE(waitForState(QStringLiteral("idle"), 5s));
    keepRunning(1500ms);
    player->kill();
    player->waitForFinished(3000);
    EXPECT_EQ(window.text(), QStringLiteral("before"));
    EXPECT_EQ(property(QStringLiteral("State")), QStringLiteral("idle"));
    EXPECT_FALSE(program->log().contains(QStringLiteral("Transcript:"))) << program->log().toStdString();
}
