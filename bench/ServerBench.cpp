// The program's own share of the time between the trigger's release and the paste when a
// transcription server is asked: taking the recording, the speech check, WAV encoding, the
// multipart request over loopback HTTP and parsing the reply. The server is a stand-in in the same
// process that answers at once, and the on-device recognizer a fake whose words are ready at once,
// so what is measured is Murmurly's overhead, not recognition. The recording is a 5-second
// LibriVox sentence delivered as a 48 kHz stereo microphone would.
#include "ControllerHarness.h"
#include "Figures.h"
#include "SpeechCorpus.h"
#include "StandInHttpServer.h"

#include "speech/TranscriptionSettings.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QLoggingCategory>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <vector>

using namespace murmurly;
using namespace std::chrono_literals;

namespace {

// About five seconds of a LibriVox sentence at 48 kHz stereo, in microphone-sized buffers; a
// warbling tone of that length when the corpus is not installed.
std::vector<AudioBuffer> fiveSecondsOfSpeech() {
    std::vector<float> mono;
    for (const testing::Utterance& utterance : testing::libriVoxUtterances()) {
        const testing::WavAudio audio = testing::readWav(utterance.wavPath);
        if (audio.sampleRate != 16000 || audio.duration() < 4.5) continue;
        const std::size_t count = std::min<std::size_t>(audio.samples.size(), 5 * 16000);
        for (std::size_t i = 0; i < count * 3; ++i) // 16 kHz to 48 kHz by repetition is enough here
            mono.push_back(float(audio.samples[i / 3]) / 32768.0f);
        break;
    }
    if (mono.empty())
        for (int i = 0; i < 5 * 48000; ++i)
            mono.push_back(
                float(0.2 * std::sin(2 * 3.14159265 *
                                     (300 + 80 * std::sin(i * 2 * 3.14159265 * 3 / 48000.0)) * i / 48000.0)));
    std::vector<AudioBuffer> buffers;
    for (std::size_t at = 0; at < mono.size(); at += 4096) {
        const std::int64_t n = std::int64_t(std::min<std::size_t>(4096, mono.size() - at));
        AudioBuffer buffer = *AudioBuffer::allocate(AudioFormat::float32(48000, 2), n);
        for (std::int64_t i = 0; i < n; ++i)
            buffer.floatSamples()[2 * i] = buffer.floatSamples()[2 * i + 1] = mono[at + std::size_t(i)];
        buffer.setFrameLength(n);
        buffers.push_back(std::move(buffer));
    }
    return buffers;
}

void BM_ServerOverhead(benchmark::State& state) {
    QLoggingCategory::setFilterRules(QStringLiteral("com.qv.murmurly.app=false"));
    testing::StandInHttpServer server;
    if (!server.start()) {
        state.SkipWithError("no loopback port for the stand-in server");
        return;
    }
    server.setJsonResponse(200, R"({"text":"and mister john dashwood had then leisure to consider"})");
    testing::ControllerHarness h;
    h.speech.script.finalResults = {{QStringLiteral("the mister john dashwood and then at leisure"), true}};
    h.defaults.setString(TranscriptionSettings::speechEngineKey, QStringLiteral("server"));
    h.defaults.setString(TranscriptionSettings::endpointURLKey, server.url(QStringLiteral("/inference")));
    AppController& controller = h.controller();
    const std::vector<AudioBuffer> speech = fiveSecondsOfSpeech();

    bool pasted = false;
    QElapsedTimer timer;
    qint64 pastedAfterNs = 0;
    h.pasteKeys.onPaste = [&] {
        pastedAfterNs = timer.nsecsElapsed();
        pasted = true;
    };
    std::vector<double> samples;
    for (auto _ : state) {
        controller.pttPressed();
        h.settle();
        for (const AudioBuffer& buffer : speech)
            h.microphone->deliver(buffer);
        h.advance(5s);
        pasted = false;
        timer.start();
        controller.pttReleased();
        while (!pasted && timer.elapsed() < 5000)
            QCoreApplication::processEvents();
        if (!pasted || controller.lastError()) {
            state.SkipWithError("the server's text never reached the inserter");
            break;
        }
        samples.push_back(double(pastedAfterNs) * 1e-9);
        state.SetIterationTime(double(pastedAfterNs) * 1e-9);
        h.advance(300ms);
    }
    state.counters["p50_ms"] = bench::percentile(samples, 0.50) * 1e3;
    state.counters["p95_ms"] = bench::percentile(samples, 0.95) * 1e3;
    QLoggingCategory::setFilterRules(QString());
}

const bool figures = [] {
    bench::addFigure("BM_ServerOverhead", {"<= 15 ms", 0.015, std::nullopt});
    return true;
}();

} // namespace

BENCHMARK(BM_ServerOverhead)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(100);
