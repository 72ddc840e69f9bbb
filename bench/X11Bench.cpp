// The desktop paths whose latency a user feels, on a private X server: a trigger key-up made with
// XTest until onRelease runs on the main thread, and an insertion until its paste chord is posted.
#include "Figures.h"
#include "ManualClock.h"
#include "MemoryDefaults.h"
#include "TextFieldWindowProcess.h"
#include "WaitUntil.h"
#include "XTestKeyboard.h"
#include "core/SystemClock.h"
#include "hotkey/HotkeyMonitor.h"
#include "output/TextInserter.h"
#include "platform/linux/QtClipboard.h"
#include "platform/linux/X11KeyEventSource.h"
#include "platform/linux/XTestPasteKeys.h"

#include <QClipboard>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QMimeData>
#include <QTimer>

#include <benchmark/benchmark.h>

#include <X11/keysym.h>

#include <algorithm>
#include <chrono>
#include <vector>

using namespace murmurly;
using namespace std::chrono_literals;
using Steady = std::chrono::steady_clock;

namespace {

bool haveDisplay() {
    return qobject_cast<QGuiApplication*>(QCoreApplication::instance()) != nullptr;
}

void BM_ReleaseToMainThread(benchmark::State& state) {
    if (!haveDisplay()) {
        state.SkipWithError("no X server");
        return;
    }
    testing::XTestKeyboard keyboard;
    X11KeyEventSource source;
    SystemClock clock;
    HotkeyMonitor monitor(source, clock);
    bool pressed = false;
    bool released = false;
    Steady::time_point releasedAt;
    monitor.onPress = [&](Clock::TimePoint) { pressed = true; };
    monitor.onRelease = [&](Clock::TimePoint) {
        releasedAt = Steady::now();
        released = true;
    };
    if (!keyboard.isOpen() || !monitor.start()) {
        state.SkipWithError("the key source did not start");
        return;
    }
    // A bound on every wait: the loop below also wakes when this fires.
    bool timedOut = false;
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, [&] { timedOut = true; });

    std::vector<double> samples;
    for (auto _ : state) {
        pressed = false;
        keyboard.press(XK_Alt_R);
        if (!testing::waitUntil([&] { return pressed; }, 2s)) {
            state.SkipWithError("no press edge");
            break;
        }
        released = false;
        timedOut = false;
        guard.start(2000);
        const auto start = Steady::now();
        keyboard.release(XK_Alt_R);
        // The main thread sleeps in its event loop as the program's does, until the edge wakes it.
        while (!released && !timedOut)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        guard.stop();
        if (!released) {
            state.SkipWithError("no release edge");
            break;
        }
        const double seconds = std::chrono::duration<double>(releasedAt - start).count();
        state.SetIterationTime(seconds);
        samples.push_back(seconds);
    }
    state.counters["p50_us"] = bench::percentile(samples, 0.50) * 1e6;
    state.counters["p99_us"] = bench::percentile(samples, 0.99) * 1e6;
}

// Notes the moment the chord has been handed to the X server.
class TimedPasteKeys final : public PasteKeys {
public:
    explicit TimedPasteKeys(PasteKeys& keys)
        : m_keys(keys) {}
    bool paste() override {
        const bool made = m_keys.paste();
        postedAt = Steady::now();
        return made;
    }
    Steady::time_point postedAt;

private:
    PasteKeys& m_keys;
};

void BM_InsertToPasteChord(benchmark::State& state) {
    if (!haveDisplay()) {
        state.SkipWithError("no X server");
        return;
    }
    // The user's clipboard belongs to another application, as it usually does, so the snapshot
    // reads every type across the X server.
    testing::TextFieldWindowProcess other;
    if (!other.isReady()) {
        state.SkipWithError("the text-field window did not come up");
        return;
    }
    testing::MemoryDefaults defaults;
    QtClipboard clipboard;
    XTestPasteKeys xtestKeys(defaults);
    TimedPasteKeys keys(xtestKeys);
    testing::ManualClock clock;
    TextInserter inserter(clipboard, keys, clock);

    for (auto _ : state) {
        state.PauseTiming();
        other.command("clip-image");
        testing::waitUntil([] {
            const QMimeData* data = QGuiApplication::clipboard()->mimeData();
            return data && data->hasFormat(QStringLiteral("image/png"));
        });
        state.ResumeTiming();

        const auto start = Steady::now();
        auto task = inserter.insert(QStringLiteral("the dictated words"));
        state.SetIterationTime(std::chrono::duration<double>(keys.postedAt - start).count());

        state.PauseTiming();
        // The window reads the clipboard while the inserter waits, as it would in 180 ms.
        if (!testing::waitUntil([&] { return other.text() == QStringLiteral("the dictated words"); }, 2s)) {
            state.SkipWithError("the text did not arrive");
            break;
        }
        clock.advance(180ms);
        other.command("set-text");
        state.ResumeTiming();
    }
}

const bool figures = [] {
    bench::addFigure("BM_InsertToPasteChord", {"<= 5 ms", 5e-3, std::nullopt});
    return true;
}();

} // namespace

BENCHMARK(BM_ReleaseToMainThread)->UseManualTime()->Iterations(200)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_InsertToPasteChord)->UseManualTime()->Iterations(50)->Unit(benchmark::kMicrosecond);
