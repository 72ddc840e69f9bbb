// Dictating on a Wayland desktop, as a user of sway does: the program runs on the compositor
// alone (no X server), the trigger key is a sway binding that runs `murmurly --press` and
// `murmurly --release`, and the text goes into a Wayland-native text field through the
// compositor's clipboard and virtual keyboard. The compositor, the audio server, the session bus
// and the home are the test's own.
#include "CancelledDictation.h"
#include "HeadlessSway.h"
#include "MurmurlyControl.h"
#include "PrivateDesktopPortal.h"
#include "PrivatePulseServer.h"
#include "PrivateSessionBus.h"
#include "ProgramCopy.h"
#include "RunningMurmurly.h"
#include "SpeechCorpus.h"
#include "StandInPortalRegistryProcess.h"
#include "TemporaryHome.h"
#include "TextFieldWindowProcess.h"
#include "WaitUntil.h"
#include "WaylandTestKeyboard.h"

#include <QDBusConnectionInterface>

#include <gtest/gtest.h>

#include <cstdio>

using namespace murmurly;
using namespace murmurly::testing;
using namespace std::chrono_literals;

namespace {

using Types = QList<QPair<QString, QByteArray>>;

const QString textFieldTitle = QStringLiteral("Text field");

QString sentence(const char* id) {
    return libriVoxFolder() + QLatin1Char('/') + QLatin1String(id) + QStringLiteral(".wav");
}

std::optional<QByteArray> bytesOf(const Types& types, const QString& type) {
    for (const auto& [name, bytes] : types)
        if (name == type) return bytes;
    return std::nullopt;
}

// Another Wayland client that puts a text and an image on the clipboard and serves them.
class ClipboardOwner {
public:
    ClipboardOwner(const HeadlessSway& sway, const Types& types) {
        QStringList arguments;
        for (const auto& [type, bytes] : types)
            arguments << QStringLiteral("--type") << type << QString::fromLatin1(bytes.toBase64());
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

private:
    QProcess m_process;
    QByteArray m_output;
    bool m_owner = false;
};

class WaylandDictationTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(program.isReady());
        ASSERT_TRUE(pulse.isRunning()) << pulse.error().toStdString();
        ASSERT_TRUE(bus.isRunning()) << bus.error().toStdString();
        ASSERT_TRUE(sway.isRunning()) << sway.error().toStdString();
        control.emplace(bus.address(), QStringLiteral("murmurly-wayland-e2e"));
        ASSERT_TRUE(control->isConnected());
        window.emplace(QStringList{QStringLiteral("--class"), QStringLiteral("Notepadish")},
                       sway.clientEnvironment(QProcessEnvironment::systemEnvironment()));
        ASSERT_TRUE(window->isReady()) << sway.log().toStdString();
        keyboard.emplace(sway.waylandDisplay());
        ASSERT_TRUE(keyboard->isOpen());
    }

    void TearDown() override {
        if (keyboard && keyboard->isDown(WaylandTestKeyboard::rightAlt))
            keyboard->release(WaylandTestKeyboard::rightAlt);
        if (murmurly) {
            murmurly->stop();
            if (HasFailure()) std::printf("murmurly's log:\n%s\n", qPrintable(murmurly->log()));
        }
        if (HasFailure()) std::printf("sway's log:\n%s\n", qPrintable(sway.log()));
    }

    // The program on the compositor alone, with no X server to fall back on. `keys` is how the
    // program must say it reads the trigger.
    void startProgram(const QString& keys = QStringLiteral("keys through compositor bindings")) {
        QProcessEnvironment environment = sway.clientEnvironment(murmurlyEnvironment());
        environment.remove(QStringLiteral("DISPLAY"));
        environment.insert(QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("wayland"));
        environment.insert(QStringLiteral("XDG_CURRENT_DESKTOP"), QStringLiteral("sway"));
        murmurly = std::make_unique<RunningMurmurly>(environment);
        ASSERT_TRUE(waitUntil(
            [&] { return control->property(QStringLiteral("ModelStatus")) == QStringLiteral("ready"); }, 60s))
            << murmurly->log().toStdString();
        ASSERT_TRUE(waitUntil([&] {
            return murmurly->log().contains(QStringLiteral("Desktop session: Wayland (sway); ") + keys);
        })) << murmurly->log().toStdString();
        // Without a tray the settings window opens at start and takes the focus: give it back to the
        // text field, as the user would by clicking into it.
        keepRunning(500ms);
        ASSERT_TRUE(sway.command(QStringLiteral("[title=\"%1\"] focus").arg(textFieldTitle)));
        ASSERT_TRUE(fieldHasFocus());
    }

    // Holds the bound key (Right Alt) while the sentence plays into the microphone, then lets go.
    void dictateHolding(const QString& wavPath) {
        ASSERT_TRUE(keyboard->press(WaylandTestKeyboard::rightAlt));
        ASSERT_TRUE(control->waitForState(QStringLiteral("recording"), 20s)) << murmurly->log().toStdString();
        ASSERT_TRUE(pulse.waitForRecorder()) << murmurly->log().toStdString();
        ASSERT_TRUE(pulse.play(wavPath));
        keepRunning(300ms);
        ASSERT_TRUE(keyboard->release(WaylandTestKeyboard::rightAlt));
    }

    // A Shift tap reaches the text field only while it has the focus.
    bool fieldHasFocus() {
        window->clearKeyEvents();
        keyboard->press(WaylandTestKeyboard::leftShift);
        keyboard->release(WaylandTestKeyboard::leftShift);
        return waitUntil([&] { return window->keyEventsOf(0xffe1).size() >= 2; }, 10s);
    }

    std::optional<Types> clipboardOnceItShows(const std::function<bool(const Types&)>& expected) {
        std::optional<Types> seen;
        waitUntil(
            [&] {
                seen = window->clipboard();
                return seen && expected(*seen);
            },
            10s);
        return seen;
    }

    ProgramCopy program;
    TemporaryHome home;
    PrivatePulseServer pulse;
    PrivateSessionBus bus{PrivateSessionBus::Access::anyUser};
    HeadlessSway sway{HeadlessSway::triggerBindings(program.path())};
    std::optional<MurmurlyControl> control;
    std::optional<TextFieldWindowProcess> window;
    std::optional<WaylandTestKeyboard> keyboard;
    std::unique_ptr<RunningMurmurly> murmurly;
};

} // namespace

TEST_F(WaylandDictationTest, HoldingTheBoundKeyTypesTheSpeechIntoAWaylandWindowAndPutsTheClipboardBack) {
    startProgram();
    const QByteArray picture = QByteArray::fromBase64(
        "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mP8z8DwHwAFBQIAX8jx0gAAAABJRU5ErkJggg==");
    const Types before{{QStringLiteral("text/plain"), "a picture of nothing"},
                       {QStringLiteral("image/png"), picture}};
    ClipboardOwner owner(sway, before);
    ASSERT_TRUE(owner.isOwner());
    ASSERT_TRUE(clipboardOnceItShows(
        [](const Types& types) { return bytesOf(types, QStringLiteral("image/png")).has_value(); }));

    dictateHolding(sentence("sense_and_sensibility_01_austen_64kb-0890"));
    if (HasFatalFailure()) return;

    ASSERT_TRUE(waitUntil([&] { return !window->text().isEmpty(); }, insertionWait))
        << murmurly->log().toStdString();
    EXPECT_TRUE(control->waitForState(QStringLiteral("idle")));
    const QString text = window->text();
    std::printf("inserted: \"%s\"\n", qPrintable(text));
    EXPECT_TRUE(text.endsWith(QLatin1Char(' ')) && !text.endsWith(QStringLiteral("  ")))
        << text.toStdString();
    const WordErrors errors = wordErrors(
        QStringLiteral("unless to be rather cold hearted and rather selfish is to be ill disposed"),
        text.trimmed());
    std::printf("word errors: %d of %d\n", errors.errors, errors.referenceWords);
    EXPECT_LE(errors.rate(), 50.0) << text.toStdString();

    // Both types are back with the same bytes, and nothing of the dictation stayed.
    const auto after = clipboardOnceItShows(
        [&](const Types& types) { return bytesOf(types, QStringLiteral("image/png")) == picture; });
    ASSERT_TRUE(after.has_value());
    EXPECT_EQ(bytesOf(*after, QStringLiteral("image/png")), picture);
    EXPECT_EQ(bytesOf(*after, QStringLiteral("text/plain")), QByteArray("a picture of nothing"));
    EXPECT_FALSE(bytesOf(*after, QStringLiteral("x-kde-passwordManagerHint")).has_value());
    EXPECT_EQ(window->text(), text);
}

TEST_F(WaylandDictationTest, EscBoundToCancelWhileTheKeyIsHeldInsertsNothing) {
    startProgram();
    ASSERT_TRUE(window->command("set-text", "before"));
    ASSERT_TRUE(window->waitForText(QStringLiteral("before")));

    ASSERT_TRUE(keyboard->press(WaylandTestKeyboard::rightAlt));
    ASSERT_TRUE(control->waitForState(QStringLiteral("recording"), 20s)) << murmurly->log().toStdString();
    ASSERT_TRUE(pulse.waitForRecorder()) << murmurly->log().toStdString();
    std::unique_ptr<QProcess> player =
        pulse.startPlaying(sentence("sense_and_sensibility_01_austen_64kb-0870"));
    keepRunning(1500ms);
    ASSERT_TRUE(keyboard->press(WaylandTestKeyboard::escape));
    ASSERT_TRUE(keyboard->release(WaylandTestKeyboard::escape));
    ASSERT_TRUE(keyboard->release(WaylandTestKeyboard::rightAlt));

    expectCancelledWithNothingInserted(*murmurly, *control, *window, *player, QStringLiteral("before"));
}

TEST_F(WaylandDictationTest, ATerminalWindowGetsTheTextThroughCtrlShiftV) {
    // A Wayland-native window with a terminal's app id that, like a terminal, pastes only on
    // Ctrl+Shift+V.
    window.emplace(
        QStringList{QStringLiteral("--class"), QStringLiteral("foot"), QStringLiteral("--terminal")},
        sway.clientEnvironment(QProcessEnvironment::systemEnvironment()));
    ASSERT_TRUE(window->isReady()) << sway.log().toStdString();
    startProgram();
    EXPECT_TRUE(murmurly->log().contains(
        QStringLiteral("focused application through zwlr_foreign_toplevel_manager_v1")))
        << murmurly->log().toStdString();

    dictateHolding(sentence("sense_and_sensibility_01_austen_64kb-0890"));
    if (HasFatalFailure()) return;

    ASSERT_TRUE(waitUntil([&] { return !window->text().isEmpty(); }, insertionWait))
        << murmurly->log().toStdString();
    EXPECT_TRUE(control->waitForState(QStringLiteral("idle")));
    EXPECT_EQ(window->keyEventsOf(0x56).value(0), QStringLiteral("press 56 SC") /* V with Shift is "V" */)
        << window->keyEvents().join(QLatin1Char(',')).toStdString();
}

// A desktop with the global-shortcuts portal: the trigger comes from the portal's activation and
// deactivation, with no compositor binding involved.
TEST_F(WaylandDictationTest, ThePortalsShortcutHeldTypesTheSpeechIntoAWaylandWindow) {
    PrivateDesktopPortal portal(bus.address());
    ASSERT_TRUE(portal.isRunning()) << portal.error().toStdString();
    startProgram(QStringLiteral("keys through the shortcuts portal"));
    ASSERT_TRUE(waitUntil([&] { return portal.sessionsBinding(QStringLiteral("dictate")) == 1u; }, 30s))
        << murmurly->log().toStdString();
    ASSERT_TRUE(waitUntil([&] {
        return murmurly->log().contains(QStringLiteral("Trigger bound through the "
                                                       "shortcuts portal: F9"));
    })) << murmurly->log().toStdString();

    ASSERT_EQ(portal.activate(QStringLiteral("dictate")), 1u);
    ASSERT_TRUE(control->waitForState(QStringLiteral("recording"), 20s)) << murmurly->log().toStdString();
    ASSERT_TRUE(pulse.waitForRecorder()) << murmurly->log().toStdString();
    ASSERT_TRUE(pulse.play(sentence("sense_and_sensibility_01_austen_64kb-0890")));
    keepRunning(300ms);
    ASSERT_EQ(portal.deactivate(QStringLiteral("dictate")), 1u);

    ASSERT_TRUE(waitUntil([&] { return !window->text().isEmpty(); }, insertionWait))
        << murmurly->log().toStdString();
    EXPECT_TRUE(control->waitForState(QStringLiteral("idle")));
    const QString text = window->text();
    std::printf("inserted: \"%s\"\n", qPrintable(text));
    EXPECT_LE(wordErrors(QStringLiteral("unless to be rather cold hearted and rather selfish is to be ill "
                                        "disposed"),
                         text.trimmed())
                  .rate(),
              50.0)
        << text.toStdString();
}

// A portal frontend with the application registry takes the id only before anything else is asked
// of it from the same connection, Qt's own calls included: the running program registers first.
TEST_F(WaylandDictationTest, TheRunningProgramRegistersWithThePortalBeforeAskingItAnythingElse) {
    StandInPortalRegistryProcess portal(bus.address());
    ASSERT_TRUE(portal.isRunning());
    // This portal offers the shortcuts (and refuses their sessions), so the program asks it.
    startProgram(QStringLiteral("keys through the shortcuts portal"));
    const QDBusReply<QString> program =
        control->connection().interface()->serviceOwner(QStringLiteral("com.qv.Murmurly"));
    ASSERT_TRUE(program.isValid());

    QStringList calls;
    ASSERT_TRUE(waitUntil(
        [&] {
            calls = portal.callsFrom(program.value());
            return !calls.filter(QStringLiteral("GlobalShortcuts.CreateSession")).isEmpty();
        },
        30s))
        << calls.join(QLatin1Char('\n')).toStdString() << murmurly->log().toStdString();
    EXPECT_EQ(calls.value(0),
              QStringLiteral("org.freedesktop.host.portal.Registry.Register com.qv.Murmurly 0 options"))
        << calls.join(QLatin1Char('\n')).toStdString();
    EXPECT_EQ(calls.filter(QStringLiteral(".Register ")).size(), 1);
    EXPECT_TRUE(murmurly->log().contains(QStringLiteral("Known to the desktop portal as com.qv.Murmurly")))
        << murmurly->log().toStdString();
}
