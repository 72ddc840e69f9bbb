// The built murmurly on a desktop of its own, measured as a user meets it: real key events for the
// trigger, LibriVox sentences played into the audio server its microphone listens to, the text
// pasted into another application's field. The key events' sending times are read on the monotonic
// clock here and set against the moments the program logs on the same clock (its latency lines).
// Prints one table: press → first captured audio frame and release → paste chord (p50, p95) with
// cleanup off, idle CPU, resident memory over the dictations, the word error rate of the pasted
// text (that of the first dictation after a start apart from the rest, over several restarts of
// the program in the same home), and, for reference, what Debian's pocketsphinx_continuous takes
// to decode the same files.
#include "HarnessSupport.h"
#include "LatencyMarks.h"
#include "ProcessUsage.h"

#include "MurmurlyControl.h"
#include "PrivatePulseServer.h"
#include "PrivateSessionBus.h"
#include "RunningMurmurly.h"
#include "SpeechCorpus.h"
#include "TemporaryHome.h"
#include "TextFieldWindowProcess.h"
#include "WaitUntil.h"
#include "XTestKeyboard.h"
#include "XvfbServer.h"

#include <QCoreApplication>
#include <QProcess>

#include <X11/keysym.h>

#include <algorithm>
#include <chrono>
#include <cmath>
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
    int dictations = 50;
    int idleSeconds = 30;
    int starts = 20;
    int restarts = 5;
    bool showMarks = false;
};

std::optional<Options> parseOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const bool hasValue = i + 1 < argc;
        if (std::strcmp(argv[i], "--dictations") == 0 && hasValue)
            options.dictations = std::atoi(argv[++i]);
        else if (std::strcmp(argv[i], "--idle-seconds") == 0 && hasValue)
            options.idleSeconds = std::atoi(argv[++i]);
        else if (std::strcmp(argv[i], "--starts") == 0 && hasValue)
            options.starts = std::atoi(argv[++i]);
        else if (std::strcmp(argv[i], "--restarts") == 0 && hasValue)
            options.restarts = std::atoi(argv[++i]);
        else if (std::strcmp(argv[i], "--show-marks") == 0)
            options.showMarks = true;
        else
            return std::nullopt;
    }
    if (options.dictations < 1 || options.idleSeconds < 1 || options.starts < 1 || options.restarts < 0)
        return std::nullopt;
    return options;
}

double mebibytes(long long bytes) {
    return double(bytes) / (1024.0 * 1024.0);
}

double percentile(std::vector<double> samples, double fraction) {
    return nearestRank(std::move(samples), fraction);
}

double median(std::vector<double> samples) {
    return nearestRank(std::move(samples), 0.5);
}

// The CPU the program uses over `seconds` of doing nothing, as a share of one core.
double idleCpuShare(pid_t pid, int seconds) {
    const std::optional<double> before = ProcessUsage::cpuSeconds(pid);
    const auto start = std::chrono::steady_clock::now();
    keepRunning(std::chrono::seconds(seconds));
    const std::optional<double> after = ProcessUsage::cpuSeconds(pid);
    const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (!before || !after) fail("could not read the program's CPU time");
    return (*after - *before) / wall;
}

ProcessUsage::Resident resident(pid_t pid) {
    const std::optional<ProcessUsage::Resident> memory = ProcessUsage::resident(pid);
    if (!memory) fail("could not read the program's resident memory");
    return *memory;
}

// Word errors of the dictations that came first after a start and of the others.
struct FirstAndRest {
    WordErrors first;
    WordErrors rest;
    int starts = 0;
};

// Resident memory at the points of the run.
struct Residency {
    ProcessUsage::Resident atStart;
    ProcessUsage::Resident afterStarts;
    ProcessUsage::Resident afterFirstDictation;
    ProcessUsage::Resident afterAllDictations;
};

struct Dictation {
    double pressToFirstFrame = 0; // seconds, from the key event sent to the first audio captured
    double releaseToPaste = 0;    // seconds, from the key event sent to the paste chord posted
    double keyUpSeenToPaste = 0;  // seconds, inside the program: key-up handled to chord posted
    WordErrors errors;
};

class LatencyHarness {
public:
    LatencyHarness(const Options& options, PrivatePulseServer& pulse, const QString& busAddress)
        : m_options(options)
        , m_pulse(pulse)
        , m_control(busAddress, QStringLiteral("murmurly-latency")) {}

    void run() {
        if (!m_window.isReady()) fail("the text-field window did not start");
        if (!m_keyboard.isOpen()) fail("could not open the X display for XTest");
        if (!m_control.isConnected()) fail("could not connect to the private session bus");
        startProgram();
        const pid_t pid = pid_t(m_program->processId());

        keepRunning(3s);
        const ProcessUsage::Resident residentAtStart = resident(pid);
        std::printf("idle for %d s after start…\n", m_options.idleSeconds);
        std::fflush(stdout);
        const double idleAfterStart = idleCpuShare(pid, m_options.idleSeconds);

        std::vector<double> startsOnSine;
        std::printf("%d starts on a source that delivers at once…\n", m_options.starts);
        std::fflush(stdout);
        pactl({QStringLiteral("load-module"), QStringLiteral("module-sine-source"),
               QStringLiteral("source_name=murmurly_latency_sine")});
        pactl({QStringLiteral("set-default-source"), QStringLiteral("murmurly_latency_sine")});
        for (int i = 0; i < m_options.starts; ++i)
            startsOnSine.push_back(startAndCancel());
        std::vector<double> pressCommands;
        std::printf("%d presses through murmurly --press…\n", m_options.starts);
        std::fflush(stdout);
        for (int i = 0; i < m_options.starts; ++i)
            pressCommands.push_back(pressCommandAndCancel());
        pactl({QStringLiteral("set-default-source"),
               QLatin1String(PrivatePulseServer::sinkName) + QStringLiteral(".monitor")});

        keepRunning(1s);
        const ProcessUsage::Resident residentAfterStarts = resident(pid);
        const QList<Utterance> utterances = libriVoxUtterances();
        if (utterances.isEmpty()) fail("no LibriVox sentences (is pocketsphinx-testdata installed?)");
        std::vector<Dictation> dictations;
        ProcessUsage::Resident residentAfterFirst;
        for (int i = 0; i < m_options.dictations; ++i) {
            const Utterance& utterance = utterances[i % utterances.size()];
            dictations.push_back(dictate(utterance));
            std::printf("dictation %d/%d: release → paste %.0f ms\n", i + 1, m_options.dictations,
                        dictations.back().releaseToPaste * 1000);
            std::fflush(stdout);
            if (i == 0) {
                keepRunning(1s);
                residentAfterFirst = resident(pid);
            }
        }
        keepRunning(3s);
        const ProcessUsage::Resident residentAfterAll = resident(pid);
        std::printf("idle for %d s after the dictations…\n", m_options.idleSeconds);
        std::fflush(stdout);
        const double idleAfterDictations = idleCpuShare(pid, m_options.idleSeconds);
        if (m_program->stop() != 0) fail("the program did not end cleanly", m_program->log());

        // The first dictation after a start, over several starts in the same home: each start
        // dictates every sentence once, a different one first each time.
        FirstAndRest afterRestarts;
        for (int r = 0; r < m_options.restarts; ++r) {
            startProgram();
            for (qsizetype i = 0; i < utterances.size(); ++i) {
                const Utterance& utterance = utterances[(r + i) % utterances.size()];
                const Dictation dictation = dictate(utterance);
                (i == 0 ? afterRestarts.first : afterRestarts.rest) += dictation.errors;
                std::printf("start %d/%d, dictation %lld: %d errors in %d words\n", r + 1, m_options.restarts,
                            static_cast<long long>(i + 1), dictation.errors.errors,
                            dictation.errors.referenceWords);
                std::fflush(stdout);
            }
            if (m_program->stop() != 0) fail("the program did not end cleanly", m_program->log());
            ++afterRestarts.starts;
        }

        std::vector<double> referenceSeconds;
        for (const Utterance& utterance : utterances) {
            const ReferenceDecode decode = decodeWithPocketsphinxContinuous(utterance.wavPath);
            if (!decode.ok) fail("pocketsphinx_continuous failed on", utterance.wavPath);
            referenceSeconds.push_back(decode.seconds);
        }

        report(startsOnSine, pressCommands, dictations, idleAfterStart, idleAfterDictations,
               {residentAtStart, residentAfterStarts, residentAfterFirst, residentAfterAll}, referenceSeconds,
               int(utterances.size()), afterRestarts);
    }

private:
    void startProgram() {
        QProcessEnvironment environment = murmurlyEnvironment();
        environment.insert(QStringLiteral("QT_LOGGING_RULES"),
                           QStringLiteral("com.qv.murmurly.latency.info=true"));
        m_environment = environment;
        m_program = std::make_unique<RunningMurmurly>(environment);
        if (!m_control.waitForProperty(QStringLiteral("ModelStatus"), QStringLiteral("ready"), 60s))
            fail("the program's speech model did not become ready", m_program->log());
        if (!waitUntil(
                [&] { return m_program->log().contains(QStringLiteral("Hotkey event tap installed")); }))
            fail("the program did not start listening to the keyboard", m_program->log());
        // Without a tray the program opens its settings window at start, which takes the focus;
        // the user clicks back into the text field.
        keepRunning(500ms);
        if (!m_window.takeFocus()) fail("the text field did not take the focus");
    }

    // The latency marks the program logged after `logStart` (a length of its log).
    LatencyMarks marksSince(qsizetype logStart) const {
        return LatencyMarks::parse(m_program->log().mid(logStart));
    }

    // Presses the trigger and waits for the first captured audio; the press's reading of the clock.
    long long pressUntilAudio(qsizetype logStart) {
        const long long pressSent = monotonicMicroseconds();
        m_keyboard.press(XK_Alt_R);
        if (!waitUntil([&] { return marksSince(logStart).has("first-audio-frame"); }, 5s))
            fail("no audio was captured after the trigger was pressed", m_program->log().mid(logStart));
        return pressSent;
    }

    // Presses the trigger, waits for the first captured audio, and cancels with Esc; the seconds
    // from the key event sent to that audio.
    double startAndCancel() {
        const qsizetype logStart = m_program->log().size();
        const long long pressSent = pressUntilAudio(logStart);
        const double seconds = double(marksSince(logStart).at("first-audio-frame") - pressSent) / 1e6;
        m_keyboard.tap(XK_Escape);
        m_keyboard.release(XK_Alt_R);
        if (!m_control.waitForState(QStringLiteral("idle"), 10s))
            fail("the program did not return to idle after Esc", m_program->log().mid(logStart));
        keepRunning(200ms);
        return seconds;
    }

    // Runs `murmurly --press`, as a compositor's key binding does, and waits until the running
    // program has handled the press; then cancels with `murmurly --cancel`. The seconds from the
    // command's start to the press handled.
    double pressCommandAndCancel() {
        const qsizetype logStart = m_program->log().size();
        QProcessEnvironment environment = m_environment;
        environment.remove(QStringLiteral("QT_LOGGING_RULES"));
        // The program stamps the press on the same monotonic clock as this reading.
        const long long started = monotonicMicroseconds();
        const ProgramRun press = runMurmurly({QStringLiteral("--press")}, environment, 10s);
        if (!press.finished || press.exitCode != 0) fail("murmurly --press did not end well", press.err);
        if (!waitUntil([&] { return marksSince(logStart).has("trigger-down"); }, 10s))
            fail("murmurly --press did not reach the program", m_program->log().mid(logStart));
        const double seconds = double(marksSince(logStart).at("trigger-down") - started) / 1e6;
        const ProgramRun cancel = runMurmurly({QStringLiteral("--cancel")}, environment, 10s);
        if (!cancel.finished || cancel.exitCode != 0) fail("murmurly --cancel did not end well", cancel.err);
        if (!m_control.waitForState(QStringLiteral("idle"), 10s))
            fail("the program did not return to idle after --cancel", m_program->log().mid(logStart));
        keepRunning(200ms);
        return seconds;
    }

    Dictation dictate(const Utterance& utterance) {
        const qsizetype logStart = m_program->log().size();
        const auto marks = [&] { return marksSince(logStart); };
        const long long pressSent = pressUntilAudio(logStart);
        std::unique_ptr<QProcess> player = m_pulse.startPlaying(utterance.wavPath);
        if (!waitUntil([&] { return player->state() == QProcess::NotRunning; }, 60s))
            fail("paplay did not finish", utterance.wavPath);
        // The user lets go a moment after the last word.
        keepRunning(300ms);
        const long long releaseSent = monotonicMicroseconds();
        m_keyboard.release(XK_Alt_R);

        if (!waitUntil([&] { return marks().has("paste-chord-posted") && !m_window.text().isEmpty(); }, 20s))
            fail("nothing was pasted", m_program->log().mid(logStart));
        if (!m_control.waitForState(QStringLiteral("idle"), 20s))
            fail("the program did not return to idle", m_program->log().mid(logStart));

        const LatencyMarks seen = marks();
        if (m_options.showMarks) {
            std::printf("  press sent at 0, release sent at %+.1f ms\n",
                        double(releaseSent - pressSent) / 1000);
            for (const auto& [moment, at] : seen.inOrder())
                std::printf("  %-24s %+9.1f ms\n", moment.c_str(), double(at - pressSent) / 1000);
        }
        Dictation dictation;
        dictation.pressToFirstFrame = double(seen.at("first-audio-frame") - pressSent) / 1e6;
        dictation.releaseToPaste = double(seen.at("paste-chord-posted") - releaseSent) / 1e6;
        if (seen.has("trigger-up"))
            dictation.keyUpSeenToPaste = double(seen.at("paste-chord-posted") - seen.at("trigger-up")) / 1e6;
        dictation.errors = wordErrors(utterance.reference, m_window.text().trimmed().toLower());

        // The clipboard is put back after the paste; the next dictation starts once that is done
        // and the field is empty again.
        keepRunning(300ms);
        if (!m_window.command("set-text", QByteArray()) || !m_window.waitForText(QString()))
            fail("could not empty the text field");
        return dictation;
    }

    void report(const std::vector<double>& startsOnSine, const std::vector<double>& pressCommands,
                const std::vector<Dictation>& dictations, double idleAfterStart, double idleAfterDictations,
                const Residency& memory, const std::vector<double>& referenceSeconds, int sentences,
                const FirstAndRest& afterRestarts) const {
        std::vector<double> press, release, inside;
        WordErrors errors;
        for (const Dictation& dictation : dictations) {
            press.push_back(dictation.pressToFirstFrame * 1000);
            release.push_back(dictation.releaseToPaste * 1000);
            inside.push_back(dictation.keyUpSeenToPaste * 1000);
            errors += dictation.errors;
        }
        const double releaseP50 = percentile(release, 0.5);
        const double growth = mebibytes(memory.afterAllDictations.total - memory.atStart.total);
        const double referenceMedian = median(referenceSeconds) * 1000;
        const auto verdict = [](bool met) { return met ? "met" : "NOT met"; };

        std::printf("\nLatency harness: the built murmurly on a private desktop, %zu dictations of %d "
                    "LibriVox sentences (held Right Alt, cleanup off)\n\n",
                    dictations.size(), sentences);
        std::printf("%-48s %10s %10s   %s\n", "measure", "p50", "p95", "goal");
        std::vector<double> sine;
        for (double seconds : startsOnSine)
            sine.push_back(seconds * 1000);
        std::printf("%-48s %7.1f ms %7.1f ms   %s\n", "press → first captured audio frame",
                    percentile(sine, 0.5), percentile(sine, 0.95), "-");
        std::printf("%-48s %7.1f ms %7.1f ms   %s\n", "  the same, the sink's monitor as microphone",
                    percentile(press, 0.5), percentile(press, 0.95), "-");
        std::vector<double> commands;
        for (double seconds : pressCommands)
            commands.push_back(seconds * 1000);
        const double commandP50 = percentile(commands, 0.5);
        std::printf("%-48s %7.1f ms %7.1f ms   p50 ≤ 20 ms (%s)\n",
                    "murmurly --press started → press handled", commandP50, percentile(commands, 0.95),
                    verdict(commandP50 <= 20));
        std::printf("%-48s %7.1f ms %7.1f ms   p50 ≤ 150 ms (%s)\n", "release → paste chord posted",
                    releaseP50, percentile(release, 0.95), verdict(releaseP50 <= 150));
        std::printf("%-48s %7.1f ms %7.1f ms   %s\n", "  of it inside the program (key-up → chord)",
                    percentile(inside, 0.5), percentile(inside, 0.95), "-");
        std::printf("\n%-48s %10s   %s\n", "measure", "value", "goal");
        std::printf("%-48s %8.3f %%   < 0.5 %% of one core (%s)\n", "idle CPU after start",
                    idleAfterStart * 100, verdict(idleAfterStart < 0.005));
        std::printf("%-48s %8.3f %%   < 0.5 %% of one core (%s)\n", "idle CPU after the dictations",
                    idleAfterDictations * 100, verdict(idleAfterDictations < 0.005));
        std::printf("%-48s %6.1f MiB\n", "resident memory after start", mebibytes(memory.atStart.total));
        char label[64];
        std::snprintf(label, sizeof label, "  after %zu starts cancelled with Esc", startsOnSine.size());
        std::printf("%-48s %6.1f MiB\n", label, mebibytes(memory.afterStarts.total));
        std::printf("%-48s %6.1f MiB\n", "  after the first dictation",
                    mebibytes(memory.afterFirstDictation.total));
        std::snprintf(label, sizeof label, "  after %zu dictations", dictations.size());
        std::printf("%-48s %6.1f MiB\n", label, mebibytes(memory.afterAllDictations.total));
        std::printf("%-48s %+6.1f MiB   ≤ 5 MiB (%s)\n", "  growth from start", growth, verdict(growth <= 5));
        const auto grown = [](const ProcessUsage::Resident& from, const ProcessUsage::Resident& to) {
            return ProcessUsage::Resident{to.total - from.total, to.files - from.files,
                                          to.shared - from.shared};
        };
        const ProcessUsage::Resident sinceStart = grown(memory.atStart, memory.afterAllDictations);
        std::printf("%-48s %+6.1f MiB\n", "    of it, pages of files (model, libraries)",
                    mebibytes(sinceStart.files));
        std::printf("%-48s %+6.1f MiB\n", "    of it, shared with the audio server",
                    mebibytes(sinceStart.shared));
        std::printf("%-48s %+6.1f MiB\n", "    of it, the program's own memory",
                    mebibytes(sinceStart.total - sinceStart.files - sinceStart.shared));
        const double growthAfterFirst =
            mebibytes(grown(memory.afterFirstDictation, memory.afterAllDictations).total);
        std::snprintf(label, sizeof label, "  growth over the last %zu dictations", dictations.size() - 1);
        std::printf("%-48s %+6.1f MiB   ≤ 5 MiB (%s)\n", label, growthAfterFirst,
                    verdict(growthAfterFirst <= 5));
        std::printf("%-48s %8.1f %%   (%d errors in %d words)\n", "word error rate of the pasted text",
                    errors.rate(), errors.errors, errors.referenceWords);
        WordErrors later;
        for (std::size_t i = 1; i < dictations.size(); ++i)
            later += dictations[i].errors;
        std::printf("%-48s %8.1f %%   (%d errors in %d words: one sentence)\n",
                    "  first dictation of a new user (none stored)", dictations.front().errors.rate(),
                    dictations.front().errors.errors, dictations.front().errors.referenceWords);
        std::printf("%-48s %8.1f %%   (%d errors in %d words)\n", "  the dictations after it", later.rate(),
                    later.errors, later.referenceWords);
        if (afterRestarts.starts > 0) {
            const double gap = afterRestarts.first.rate() - afterRestarts.rest.rate();
            std::snprintf(label, sizeof label, "  first dictation after each of %d starts",
                          afterRestarts.starts);
            std::printf("%-48s %8.1f %%   (%d errors in %d words) within 2 points of the rest (%s)\n", label,
                        afterRestarts.first.rate(), afterRestarts.first.errors,
                        afterRestarts.first.referenceWords, verdict(gap <= 2.0));
            std::printf("%-48s %8.1f %%   (%d errors in %d words)\n",
                        "  the other dictations of those starts", afterRestarts.rest.rate(),
                        afterRestarts.rest.errors, afterRestarts.rest.referenceWords);
        }
        std::printf("\nReference: pocketsphinx_continuous -infile, whole file (model load included)\n");
        std::printf("%-48s %7.1f ms\n", "median decode time of the same sentences", referenceMedian);
        if (releaseP50 > 0)
            std::printf("%-48s %7.1fx\n", "release → paste p50 is shorter by a factor of",
                        referenceMedian / releaseP50);
    }

    Options m_options;
    PrivatePulseServer& m_pulse;
    MurmurlyControl m_control;
    TextFieldWindowProcess m_window{{QStringLiteral("--class"), QStringLiteral("Notepadish")}};
    XTestKeyboard m_keyboard;
    std::unique_ptr<RunningMurmurly> m_program;
    QProcessEnvironment m_environment; // the program's, for the commands run beside it
};

} // namespace

int main(int argc, char** argv) {
    const std::optional<Options> options = parseOptions(argc, argv);
    if (!options) {
        std::fprintf(
            stderr, "usage: murmurly_latency [--dictations N] [--starts N] [--restarts N] [--idle-seconds S] "
                    "[--show-marks]\n");
        return 2;
    }
    // The desktop is the harness's own: a private X server, session bus, audio server and home.
    XvfbServer server;
    if (!server.isRunning()) fail("could not start a private X server", server.error());
    qputenv("DISPLAY", server.displayName());
    QCoreApplication application(argc, argv);
    TemporaryHome home;
    PrivateSessionBus bus;
    if (!bus.isRunning()) fail("could not start a private session bus", bus.error());
    PrivatePulseServer pulse;
    if (!pulse.isRunning()) fail("could not start a private audio server", pulse.error());
    const std::unique_ptr<QProcess> noise = startRoomNoise();

    LatencyHarness harness(*options, pulse, bus.address());
    harness.run();

    noise->kill();
    noise->waitForFinished(3000);
    return 0;
}
