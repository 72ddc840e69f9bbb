// The microphone's way from a dictation's start to its first buffer: start() on a capture device
// already connected to a private audio server, until the first buffer reaches the handler. The
// source renders audio for a recorder as soon as it joins, as a microphone does.
#include "Figures.h"
#include "PrivatePulseServer.h"
#include "platform/linux/PulseCaptureDevice.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QEventLoop>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <vector>

using namespace murmurly;
using Steady = std::chrono::steady_clock;

namespace {

void BM_CaptureStartToFirstBuffer(benchmark::State& state) {
    testing::PrivatePulseServer server(testing::PrivatePulseServer::DefaultSource::sine);
    if (!server.isRunning()) {
        state.SkipWithError("the private audio server did not start");
        return;
    }
    PulseCaptureDevice device;
    device.inputFormat(); // connected ahead, as the program is before the first dictation

    std::vector<double> samples;
    for (auto _ : state) {
        std::atomic<bool> arrived{false};
        Steady::time_point arrivedAt;
        const auto start = Steady::now();
        device.start(4096, [&](const AudioBuffer&) {
            if (!arrived.exchange(true)) arrivedAt = Steady::now();
        });
        const auto deadline = start + std::chrono::seconds(5);
        while (!arrived.load() && Steady::now() < deadline)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
        device.stop();
        if (!arrived.load()) {
            state.SkipWithError("no buffer within 5 s");
            break;
        }
        const double seconds = std::chrono::duration<double>(arrivedAt - start).count();
        state.SetIterationTime(seconds);
        samples.push_back(seconds);
    }
    state.counters["p50_ms"] = bench::percentile(samples, 0.50) * 1e3;
    state.counters["p95_ms"] = bench::percentile(samples, 0.95) * 1e3;
}

const bool figures = [] {
    bench::addFigure("BM_CaptureStartToFirstBuffer", {"<= 50 ms", 50e-3, std::nullopt});
    return true;
}();

} // namespace

BENCHMARK(BM_CaptureStartToFirstBuffer)->UseManualTime()->Iterations(50)->Unit(benchmark::kMillisecond);
