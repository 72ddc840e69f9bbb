// The built murmurly on a Wayland desktop of its own, as a user of sway meets it: the trigger is a
// sway key binding that runs `murmurly --press` and `murmurly --release`, the keys come from a
// virtual keyboard as a real keyboard's would, and the text goes into a Wayland-native text field
// through the compositor's clipboard and virtual keyboard. The key events' sending times are read
// on the monotonic clock here and set against the moments the program logs on the same clock.
// Prints one table: key press → press handled (through the binding's command), key press → first
// captured audio frame, key release → release handled, and key release → paste chord posted
// (p50, p95), with the word error rate of the pasted text.
#include "HarnessSupport.h"
#include "LatencyMarks.h"

#include "HeadlessSway.h"
#include "MurmurlyControl.h"
#include "PrivatePulseServer.h"
#include "PrivateSessionBus.h"
#include "ProgramCopy.h"
#include "RunningMurmurly.h"
#include "SpeechCorpus.h"
#include "TemporaryHome.h"
#include "TextFieldWindowProcess.h"
#include "WaitUntil.h"
#include "WaylandTestKeyboard.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

using namespace murmurly::bench;
using namespace murmurly::testing;
using namespace std::chrono_literals;

namespace {

struct Options {
    int presses = 30;
    int dictations = 20;
    bool showMarks = false;
};

std::optional<Options> parseOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const bool hasValue = i + 1 < argc;
        if (std::strcmp(argv[i], "--presses") == 0 && hasValue)
            options.presses = std::atoi(argv[++i]);
        else if (std::strcmp(argv[i], "--dictations") == 0 && hasValue)
            options.dictations = std::atoi(argv[++i]);
        else if (std::strcmp(argv[i], "--show-marks") == 0)
            options.showMarks = true;
        else
            return std::nullopt;
    }
    if (options.presses < 1 || options.dictations < 1) return std::nullopt;
    return options;
}

const QString textFieldTitle = QStringLiteral("Text field");

// How many copies of `program` run as commands of sway's bindings: a binding's command that has
// not reached the program yet could otherwise land in the next measurement.
int commandsRunning(const QString& program) {
    int count = 0;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& entry : entries) {
        bool isProcess = false;
        entry.toInt(&isProcess);
        if (!isProcess) continue;
        QFile file(QStringLiteral("/proc/%1/cmdline").arg(entry));
        if (!file.open(QIODevice::ReadOnly)) continue;
        const QByteArray firstArgument = file.readAll().split('\0').value(0);
        if (firstArgument == program.toLocal8Bit()) ++count;
    }
    return count;
}

struct Press {
    double keyToHandled = 0; // seconds, from the key event sent to the press handled
    double keyToFirstFrame = 0;
};

struct Dictation {
    double keyToPressHandled = 0;
    double keyToReleaseHandled = 0;
    double keyToPaste = 0;     // from the release's key event sent to the paste chord posted
    double handledToPaste = 0; // inside the program: release handled to chord posted
    WordErrors errors;
};

class WaylandLatencyHarness {
public:
    WaylandLatencyHarness(const Options& options, PrivatePulseServer& pulse, const QString& busAddress,
                          const ProgramCopy& program, HeadlessSway& sway)
        : m_options(options)
        , m_pulse(pulse)
        , m_program(program)
        , m_sway(sway)
        , m_control(busAddress, QStringLiteral("murmurly-wayland-latency"))
        , m_window({QStringLiteral("--class"), QStringLiteral("Notepadish")},
                   sway.clientEnvironment(QProcessEnvironment::systemEnvironment()))
        , m_keyboard(sway.waylandDisplay()) {}

    void run() {
        if (!m_window.isReady()) fail("the text-field window did not start", m_sway.log());
        if (!m_keyboard.isOpen()) fail("could not open a virtual keyboard on the compositor");
        if (!m_control.isConnected()) fail("could not connect to the private session bus");
        startProgram();

        std::printf("%d presses of the bound key on a source that delivers at once…\n", m_options.presses);
        std::fflush(stdout);
        pactl({QStringLiteral("load-module"), QStringLiteral("module-sine-source"),
               QStringLiteral("source_name=murmurly_latency_sine")});
        pactl({QStringLiteral("set-default-source"), QStringLiteral("murmurly_latency_sine")});
        std::vector<Press> presses;
        for (int i = 0; i < m_options.presses; ++i)
            presses.push_back(pressAndCancel());
        pactl({QStringLiteral("set-default-source"),
               QLatin1String(PrivatePulseServer::sinkName) + QStringLiteral(".monitor")});

        const QList<Utterance> utterances = libriVoxUtterances();
        if (utterances.isEmpty()) fail("no LibriVox sentences (is pocketsphinx-testdata installed?)");
        std::vector<Dictation> dictations;
        for (int i = 0; i < m_options.dictations; ++i) {
            dictations.push_back(dictate(utterances[i % utterances.size()]));
            std::printf("dictation %d/%d: release → paste %.1f ms\n", i + 1, m_options.dictations,
                        dictations.back().keyToPaste * 1000);
            std::fflush(stdout);
        }
        if (m_murmurly->stop() != 0) fail("the program did not end cleanly", m_murmurly->log());
        report(presses, dictations, int(utterances.size()));
    }

private:
    // The program on the compositor alone, with no X server to fall back on.
    void startProgram() {
        QProcessEnvironment environment = m_sway.clientEnvironment(murmurlyEnvironment());
        environment.remove(QStringLiteral("DISPLAY"));
        environment.insert(QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("wayland"));
        environment.insert(QStringLiteral("XDG_CURRENT_DESKTOP"), QStringLiteral("sway"));
        environment.insert(QStringLiteral("QT_LOGGING_RULES"),
                           QStringLiteral("com.qv.murmurly.latency.info=true"));
        m_murmurly = std::make_unique<RunningMurmurly>(environment);
        if (!m_control.waitForProperty(QStringLiteral("ModelStatus"), QStringLiteral("ready"), 60s))
            fail("the program's speech model did not become ready", m_murmurly->log());
        if (!waitUntil([&] {
                return m_murmurly->log().contains(
                    QStringLiteral("Desktop session: Wayland (sway); keys through compositor bindings"));
            }))
            fail("the program did not take its keys from the compositor's bindings", m_murmurly->log());
        // Without a tray the settings window opens at start and takes the focus; the user clicks
        // back into the text field.
        keepRunning(500ms);
        if (!m_sway.command(QStringLiteral("[title=\"%1\"] focus").arg(textFieldTitle)))
            fail("could not give the text field the focus", m_sway.log());
    }

    LatencyMarks marksSince(qsizetype logStart) const {
        return LatencyMarks::parse(m_murmurly->log().mid(logStart));
    }

    void waitForCommandsToEnd() {
        if (!waitUntil([&] { return commandsRunning(m_program.path()) == 0; }, 20s))
            fail("a command of sway's bindings did not end");
    }

    // Holds the bound key until the press is handled and audio comes, then cancels with Esc (sway's
    // binding runs `murmurly --cancel`) and lets go.
    Press pressAndCancel() {
        const qsizetype logStart = m_murmurly->log().size();
        const long long keySent = monotonicMicroseconds();
        if (!m_keyboard.press(WaylandTestKeyboard::rightAlt)) fail("the compositor did not take the key");
        if (!waitUntil(
                [&] {
                    const LatencyMarks marks = marksSince(logStart);
                    return marks.has("trigger-down") && marks.has("first-audio-frame");
                },
                20s))
            fail("the binding's press did not start a recording", m_murmurly->log().mid(logStart));
        const LatencyMarks seen = marksSince(logStart);
        if (!m_keyboard.press(WaylandTestKeyboard::escape) ||
            !m_keyboard.release(WaylandTestKeyboard::escape))
            fail("the compositor did not take Esc");
        if (!m_control.waitForState(QStringLiteral("idle"), 20s))
            fail("the program did not return to idle after Esc", m_murmurly->log().mid(logStart));
        if (!m_keyboard.release(WaylandTestKeyboard::rightAlt)) fail("the compositor did not take the key");
        waitForCommandsToEnd();
        return {double(seen.at("trigger-down") - keySent) / 1e6,
                double(seen.at("first-audio-frame") - keySent) / 1e6};
    }

    Dictation dictate(const Utterance& utterance) {
        const qsizetype logStart = m_murmurly->log().size();
        const long long pressSent = monotonicMicroseconds();
        if (!m_keyboard.press(WaylandTestKeyboard::rightAlt)) fail("the compositor did not take the key");
        if (!m_control.waitForState(QStringLiteral("recording"), 20s) || !m_pulse.waitForRecorder())
            fail("the binding's press did not start a recording", m_murmurly->log().mid(logStart));
        std::unique_ptr<QProcess> player = m_pulse.startPlaying(utterance.wavPath);
        if (!waitUntil([&] { return player->state() == QProcess::NotRunning; }, 60s))
            fail("paplay did not finish", utterance.wavPath);
        // The user lets go a moment after the last word.
        keepRunning(300ms);
        const long long releaseSent = monotonicMicroseconds();
        if (!m_keyboard.release(WaylandTestKeyboard::rightAlt)) fail("the compositor did not take the key");
        if (!waitUntil(
                [&] { return marksSince(logStart).has("paste-chord-posted") && !m_window.text().isEmpty(); },
                20s))
            fail("nothing was pasted", m_murmurly->log().mid(logStart));
        if (!m_control.waitForState(QStringLiteral("idle"), 20s))
            fail("the program did not return to idle", m_murmurly->log().mid(logStart));

        const LatencyMarks seen = marksSince(logStart);
        if (m_options.showMarks) {
            std::printf("  press sent at 0, release sent at %+.1f ms\n",
                        double(releaseSent - pressSent) / 1000);
            for (const auto& [moment, at] : seen.inOrder())
                std::printf("  %-24s %+9.1f ms\n", moment.c_str(), double(at - pressSent) / 1000);
        }
        Dictation dictation;
        dictation.keyToPressHandled = double(seen.at("trigger-down") - pressSent) / 1e6;
        dictation.keyToReleaseHandled = double(seen.at("trigger-up") - releaseSent) / 1e6;
        dictation.keyToPaste = double(seen.at("paste-chord-posted") - releaseSent) / 1e6;
        dictation.handledToPaste = double(seen.at("paste-chord-posted") - seen.at("trigger-up")) / 1e6;
        dictation.errors = wordErrors(utterance.reference, m_window.text().trimmed().toLower());

        // The clipboard is put back after the paste; the next dictation starts once that is done
        // and the field is empty again.
        keepRunning(300ms);
        if (!m_window.command("set-text", QByteArray()) || !m_window.waitForText(QString()))
            fail("could not empty the text field");
        waitForCommandsToEnd();
        return dictation;
    }

    static void row(const char* measure, std::vector<double> milliseconds, const char* goal) {
        std::printf("%-52s %7.1f ms %7.1f ms   %s\n", measure, nearestRank(milliseconds, 0.5),
                    nearestRank(milliseconds, 0.95), goal);
    }

    void report(const std::vector<Press>& presses, const std::vector<Dictation>& dictations,
                int sentences) const {
        std::vector<double> pressHandled, firstFrame, releaseHandled, paste, inside;
        for (const Press& press : presses) {
            pressHandled.push_back(press.keyToHandled * 1000);
            firstFrame.push_back(press.keyToFirstFrame * 1000);
        }
        WordErrors errors;
        for (const Dictation& dictation : dictations) {
            pressHandled.push_back(dictation.keyToPressHandled * 1000);
            releaseHandled.push_back(dictation.keyToReleaseHandled * 1000);
            paste.push_back(dictation.keyToPaste * 1000);
            inside.push_back(dictation.handledToPaste * 1000);
            errors += dictation.errors;
        }
        const auto verdict = [](bool met) { return met ? "met" : "NOT met"; };
        const double pressP50 = nearestRank(pressHandled, 0.5);
        const double pasteP50 = nearestRank(paste, 0.5);
        char pressGoal[64];
        std::snprintf(pressGoal, sizeof pressGoal, "p50 ≤ 20 ms (%s)", verdict(pressP50 <= 20));
        char pasteGoal[64];
        std::snprintf(pasteGoal, sizeof pasteGoal, "p50 ≤ 150 ms (%s), aim ≤ 30 ms",
                      verdict(pasteP50 <= 150));

        std::printf(
            "\nWayland latency harness: the built murmurly on headless sway, trigger bound in sway "
            "(bindsym to murmurly --press / --release), %zu presses and %zu dictations of %d LibriVox "
            "sentences (cleanup off)\n\n",
            presses.size(), dictations.size(), sentences);
        std::printf("%-52s %10s %10s   %s\n", "measure", "p50", "p95", "goal");
        row("key press → press handled (binding's command)", pressHandled, pressGoal);
        row("key press → first captured audio frame", firstFrame, "-");
        row("key release → release handled (binding's command)", releaseHandled, "-");
        row("key release → paste chord posted", paste, pasteGoal);
        row("  of it inside the program (release → chord)", inside, "-");
        std::printf("\n%-52s %8.1f %%   (%d errors in %d words)\n", "word error rate of the pasted text",
                    errors.rate(), errors.errors, errors.referenceWords);
    }

    Options m_options;
    PrivatePulseServer& m_pulse;
    const ProgramCopy& m_program;
    HeadlessSway& m_sway;
    MurmurlyControl m_control;
    TextFieldWindowProcess m_window;
    WaylandTestKeyboard m_keyboard;
    std::unique_ptr<RunningMurmurly> m_murmurly;
};

} // namespace

int main(int argc, char** argv) {
    const std::optional<Options> options = parseOptions(argc, argv);
    if (!options) {
        std::fprintf(stderr,
                     "usage: murmurly_wayland_latency [--presses N] [--dictations N] [--show-marks]\n");
        return 2;
    }
    // The desktop is the harness's own: a private compositor, session bus, audio server and home.
    QCoreApplication application(argc, argv);
    TemporaryHome home;
    // The bindings' commands run as the compositor's user and must reach the program on this bus.
    PrivateSessionBus bus(PrivateSessionBus::Access::anyUser);
    if (!bus.isRunning()) fail("could not start a private session bus", bus.error());
    PrivatePulseServer pulse;
    if (!pulse.isRunning()) fail("could not start a private audio server", pulse.error());
    const ProgramCopy program;
    if (!program.isReady()) fail("could not copy the program where the compositor's user may run it");
    HeadlessSway sway(HeadlessSway::triggerBindings(program.path()));
    if (!sway.isRunning()) fail("could not start a private headless sway", sway.error());
    const std::unique_ptr<QProcess> noise = startRoomNoise();

    WaylandLatencyHarness harness(*options, pulse, bus.address(), program, sway);
    harness.run();

    noise->kill();
    noise->waitForFinished(3000);
    return 0;
}
