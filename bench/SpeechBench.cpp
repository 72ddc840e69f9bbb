#include "FakeCaptureDevice.h"
#include "SpeechCorpus.h"
#include "core/SystemClock.h"
#include "platform/linux/PocketsphinxBackend.h"
#include "speech/AudioInput.h"
#include "speech/TranscriptionEngine.h"

#include <QCoroTask>
#include <QElapsedTimer>

#include "Figures.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>
#include <vector>

using namespace murmurly;
using namespace murmurly::testing;

namespace {

const QString debianModels = QStringLiteral("/usr/share/pocketsphinx/model");

double median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    const std::size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// The capture thread's whole work for one microphone buffer: a 4096-frame 48 kHz stereo float
// buffer converted to 16 kHz mono 16-bit and handed on.
void BM_ConvertMic48kStereoTo16kMono(benchmark::State& state) {
    const AudioFormat mic = AudioFormat::float32(48000, 2);
    auto* device = new FakeCaptureDevice(mic);
    AudioInput input{std::unique_ptr<CaptureDevice>(device)};
    std::int64_t framesOut = 0;
    input.start(AudioFormat::int16(16000, 1),
                [&](AnalyzerInput in) { framesOut += in.buffer.frameLength(); });

    AudioBuffer buffer = *AudioBuffer::allocate(mic, 4096);
    buffer.setFrameLength(4096);
    std::int64_t offset = 0;
    for (auto _ : state) {
        state.PauseTiming();
        for (int i = 0; i < 4096; ++i) {
            const float v = float(0.3 * std::sin(double(offset + i) * 2 * 3.14159265 * 440 / 48000));
            buffer.floatSamples()[2 * i] = v;
            buffer.floatSamples()[2 * i + 1] = v;
        }
        offset += 4096;
        state.ResumeTiming();
        device->deliver(buffer);
    }
    input.stop();
    benchmark::DoNotOptimize(framesOut);
    // Seconds of audio per second of processor time.
    state.counters["x_real_time"] =
        benchmark::Counter(double(state.iterations()) * 4096 / 48000, benchmark::Counter::kIsRate);
    state.SetLabel("reference: >= 300 x real time on one core");
}
BENCHMARK(BM_ConvertMic48kStereoTo16kMono)->Unit(benchmark::kMicrosecond);

// The one-time model load of a language, as at start-up.
void BM_DecoderLoad(benchmark::State& state) {
    PocketsphinxBackend backend({debianModels});
    const std::optional<PocketsphinxModel> model = backend.model(QStringLiteral("en-US"));
    if (!model) {
        state.SkipWithError("no en-US model");
        return;
    }
    for (auto _ : state) {
        PocketsphinxDecoder decoder(*model);
        benchmark::DoNotOptimize(decoder.get());
    }
    state.SetLabel("once per language, at start-up, never on the press path");
}
BENCHMARK(BM_DecoderLoad)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

PocketsphinxBackend& preloadedBackend() {
    static PocketsphinxBackend backend({debianModels});
    static bool loaded = (backend.decoder(QStringLiteral("en-US")), true);
    (void)loaded;
    return backend;
}

template <typename T> T wait(QCoro::Task<T> task) {
    return QCoro::waitFor(std::move(task));
}

// One LibriVox sentence spoken into the engine in real time, buffer by buffer as the capture
// path delivers them; timed from finish() (the key's release) to the transcript.
void BM_ReleaseToTranscript(benchmark::State& state) {
    const QList<Utterance> utterances = libriVoxUtterances();
    const auto index = qsizetype(state.range(0));
    if (index >= utterances.size()) {
        state.SkipWithError("LibriVox test data missing");
        return;
    }
    const Utterance& utterance = utterances[index];
    const WavAudio audio = readWav(utterance.wavPath);
    PocketsphinxBackend& backend = preloadedBackend();
    SystemClock clock;
    constexpr std::size_t framesPerBuffer = 1365; // 4096 microphone frames at 48 kHz
    std::vector<double> releaseMs;
    QString text;

    for (auto _ : state) {
        TranscriptionEngine engine(backend, clock, QStringLiteral("en-US"));
        std::shared_ptr<AnalyzerInputStream> input = wait(engine.start());
        const auto begin = std::chrono::steady_clock::now();
        for (std::size_t offset = 0; offset < audio.samples.size(); offset += framesPerBuffer) {
            const std::size_t frames = std::min(framesPerBuffer, audio.samples.size() - offset);
            // Each buffer exists only once its audio has been spoken.
            std::this_thread::sleep_until(begin + std::chrono::microseconds(std::int64_t(
                                                      1e6 * double(offset + frames) / audio.sampleRate)));
            AudioBuffer buffer = *AudioBuffer::allocate(AudioFormat::int16(16000, 1), std::int64_t(frames));
            buffer.setFrameLength(std::int64_t(frames));
            std::copy_n(audio.samples.begin() + std::ptrdiff_t(offset), frames, buffer.int16Samples());
            input->yield(AnalyzerInput{std::move(buffer)});
        }
        QElapsedTimer release;
        release.start();
        text = wait(engine.finish());
        const double seconds = double(release.nsecsElapsed()) / 1e9;
        state.SetIterationTime(seconds);
        releaseMs.push_back(seconds * 1000);
    }

    const ReferenceDecode continuous = decodeWithPocketsphinxContinuous(utterance.wavPath);
    static std::vector<double> allReleaseMs;
    allReleaseMs.insert(allReleaseMs.end(), releaseMs.begin(), releaseMs.end());
    state.counters["p50_release_ms"] = median(releaseMs);
    state.counters["p50_release_all_sentences_so_far_ms"] = median(allReleaseMs);
    state.counters["continuous_whole_file_ms"] = continuous.seconds * 1000;
    state.counters["audio_s"] = audio.duration();
    state.counters["word_errors"] = wordErrors(utterance.reference, text).errors;
    state.SetLabel(
        QStringLiteral("reference: p50 <= 100 ms; pocketsphinx_continuous decodes the file (with its "
                       "model load) in the time shown")
            .toStdString());
}
const bool figures = [] {
    bench::addFigure("BM_ReleaseToTranscript", {"p50 <= 100 ms", 0.100, std::nullopt});
    return true;
}();

BENCHMARK(BM_ReleaseToTranscript)
    ->DenseRange(0, 4)
    ->Iterations(3)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

} // namespace
