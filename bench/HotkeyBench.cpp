// The key reader's work for one event: the monitor's decision, and for the rare edge the push
// onto the queue to the main thread and its wake-up. Measured over a stream of ordinary typing
// with a trigger press and release in it, heap allocations counted.
#include "AllocationCounter.h"
#include "FakeKeyEventSource.h"
#include "Figures.h"
#include "core/SystemClock.h"
#include "hotkey/HotkeyMonitor.h"
#include "hotkey/KeyCodes.h"

#include <QCoreApplication>

#include <benchmark/benchmark.h>

#include <vector>

using namespace murmurly;

namespace {

struct Event {
    KeyEvent::Type type;
    std::uint16_t code;
    std::uint64_t flags;
};

// 32 events: typing, then Right Option down and up around more typing.
std::vector<Event> typingWithATriggerPress() {
    std::vector<Event> events;
    for (std::uint16_t code : {0, 1, 2, 3, 4, 5, 6, 7}) {
        events.push_back({KeyEvent::Type::keyDown, code, 0});
        events.push_back({KeyEvent::Type::keyUp, code, 0});
    }
    events.push_back({KeyEvent::Type::flagsChanged, 61, ModifierFlags::option});
    for (std::uint16_t code : {8, 9, 11, 12, 13, 14, 15}) {
        events.push_back({KeyEvent::Type::keyDown, code, ModifierFlags::option});
        events.push_back({KeyEvent::Type::keyUp, code, ModifierFlags::option});
    }
    events.push_back({KeyEvent::Type::flagsChanged, 61, 0});
    return events;
}

void BM_HotkeyDecision(benchmark::State& state) {
    testing::FakeKeyEventSource source;
    SystemClock clock;
    HotkeyMonitor monitor(source, clock);
    int edges = 0;
    monitor.onPress = [&](Clock::TimePoint) { ++edges; };
    monitor.onRelease = [&](Clock::TimePoint) { ++edges; };
    monitor.start();
    const std::vector<Event> events = typingWithATriggerPress();

    std::size_t allocations = 0;
    std::size_t processed = 0;
    for (auto _ : state) {
        const std::size_t before = bench::allocationCount();
        for (const Event& e : events)
            benchmark::DoNotOptimize(source.send(e.type, e.code, e.flags));
        allocations += bench::allocationCount() - before;
        processed += events.size();
        state.PauseTiming();
        QCoreApplication::processEvents(); // the main thread takes the two edges
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(processed));
    state.counters["per_event"] = benchmark::Counter(
        static_cast<double>(processed), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["allocations"] = static_cast<double>(allocations);
    state.counters["edges"] = edges;
    if (allocations != 0) state.SkipWithError("the reader path allocated");
}

const bool figures = [] {
    // 32 events per iteration: 100 ns each.
    bench::addFigure("BM_HotkeyDecision", {"<= 3.2 us (100 ns/event)", 32 * 100e-9, std::nullopt});
    return true;
}();

} // namespace

BENCHMARK(BM_HotkeyDecision)->Unit(benchmark::kMicrosecond);
