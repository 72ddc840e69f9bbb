#include "speech/TranscriptionEngine.h"

#include "core/Log.h"
#include "speech/AudioConverter.h"
#include "speech/LanguageTag.h"
#include "speech/MurmurlyError.h"
#include "speech/VoiceActivity.h"
#include "speech/WavFile.h"

#include <algorithm>
#include <coroutine>
#include <exception>

namespace murmurly {

namespace {

// An expired time limit.
struct TimeoutError : std::exception {
    const char* what() const noexcept override { return "TimeoutError"; }
};

// First of an operation and a sleeper to finish decides; the other finds the race decided and
// ends without effect.
struct Race {
    bool decided = false;
    std::exception_ptr error;
    std::coroutine_handle<> waiter;

    void decide(std::exception_ptr outcome) {
        if (decided) return;
        decided = true;
        error = std::move(outcome);
        if (waiter) std::exchange(waiter, nullptr).resume();
    }
};

struct RaceAwaiter {
    Race& race;
    bool await_ready() const noexcept { return race.decided; }
    void await_suspend(std::coroutine_handle<> handle) noexcept { race.waiter = handle; }
    void await_resume() const noexcept {}
};

QCoro::Task<> runOperation(std::shared_ptr<Race> race, QCoro::Task<> operation) {
    std::exception_ptr error;
    try {
        co_await std::move(operation);
    } catch (...) {
        error = std::current_exception();
    }
    race->decide(error);
}

// Sleeps in short steps up to the deadline and gives up as soon as the race is decided, so that a
// limit that did not expire leaves no timer behind for long (a Clock sleep cannot be cancelled).
QCoro::Task<> runSleeper(std::shared_ptr<Race> race, Clock& clock, std::chrono::milliseconds limit) {
    constexpr std::chrono::milliseconds step{250};
    const Clock::TimePoint deadline = clock.now() + limit;
    while (!race->decided) {
        const auto remaining = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock.now());
        if (remaining <= std::chrono::milliseconds::zero()) {
            race->decide(std::make_exception_ptr(TimeoutError{}));
            break;
        }
        co_await clock.sleep(std::min(remaining, step));
    }
}

} // namespace

TranscriptionEngine::TranscriptionEngine(SpeechBackend& backend, Clock& clock, const QString& language,
                                         std::shared_ptr<TranscriptionServer> server)
    : m_backend(backend)
    , m_clock(clock)
    , m_language(language)
    , m_session(backend.makeSession(language))
    , m_reading(std::make_shared<Reading>())
    , m_server(std::move(server)) {
}

TranscriptionEngine::~TranscriptionEngine() {
    // A reader still waiting must not wait for a session that is going away.
    if (m_session) m_session->results()->cancel();
    if (m_inputContinuation) m_inputContinuation->finish();
}

QCoro::Task<std::shared_ptr<AnalyzerInputStream>> TranscriptionEngine::start() {
    m_inputContinuation = std::make_shared<AnalyzerInputStream>();
    if (m_server) {
        m_inputContinuation->keepRecording();
        m_recordedInput = m_inputContinuation;
    }
    m_recognitionTask.emplace(consumeResults(m_session->results(), m_reading));
    std::shared_ptr<AnalyzerInputStream> input = m_inputContinuation;
    co_await m_session->start(input);
    co_return input;
}

QCoro::Task<> TranscriptionEngine::consumeResults(std::shared_ptr<ResultStream> results,
                                                  std::shared_ptr<Reading> reading) {
    try {
        while (std::optional<TranscriptionResult> result = co_await results->next()) {
            // Segments carry their own spacing: joined as delivered, trimmed once at the end.
            if (result->isFinal) reading->text.append(result->text);
        }
    } catch (const ModelLoadError& e) {
        reading->loadFailure = QString::fromUtf8(e.what());
        qCCritical(lcApp, "Transcriber model failed to load: %s", e.what());
    } catch (const std::exception& e) {
        qCCritical(lcApp, "Transcriber results stream failed: %s", e.what());
    }
}

QCoro::Task<QString> TranscriptionEngine::finish() {
    if (m_inputContinuation) {
        m_inputContinuation->finish();
        m_inputContinuation.reset();
    }
    const Clock::TimePoint releasedAt = m_clock.now();

    // The server is asked first, so that it works while the on-device recognizer settles.
    std::optional<QCoro::Task<>> serverTask;
    auto answer = std::make_shared<ServerTranscript>();
    if (m_recordedInput) {
        const std::vector<std::int16_t> samples = serverSamples(m_recordedInput->takeRecording());
        m_recordedInput.reset();
        const auto voiced =
            VoiceActivity::voicedTime(samples.data(), std::int64_t(samples.size()), serverSampleRate);
        if (voiced < VoiceActivity::minimumSpeech) {
            qCInfo(lcApp,
                   "No speech in the recording (%lld ms voiced) \u2014 the transcription server is not asked",
                   static_cast<long long>(voiced.count()));
        } else {
            m_askedServer = true;
            QByteArray wav =
                WavFile::encodeInt16(samples.data(), std::int64_t(samples.size()), serverSampleRate, 1);
            serverTask.emplace(askServer(m_server, std::move(wav), m_language, m_serverLimit, answer));
        }
    }

    // A model that failed to load ends the dictation with that error, but only after the
    // server's exchange has ended: its task must not be dropped while it runs.
    QString onDevice;
    std::exception_ptr onDeviceFailure;
    try {
        onDevice = co_await finishOnDevice();
    } catch (...) {
        onDeviceFailure = std::current_exception();
    }
    if (!serverTask) {
        if (onDeviceFailure) std::rethrow_exception(onDeviceFailure);
        co_return onDevice;
    }

    const auto remaining =
        std::chrono::duration_cast<std::chrono::milliseconds>(releasedAt + m_serverLimit - m_clock.now());
    try {
        co_await withTimeout(m_clock, std::max(remaining, std::chrono::milliseconds::zero()),
                             std::move(*serverTask));
    } catch (...) {
        *answer = ServerTranscript::failure(
            QStringLiteral("No answer within %1 seconds.").arg(m_serverLimit.count() / 1000));
    }
    if (onDeviceFailure) std::rethrow_exception(onDeviceFailure);

    if (answer->text && (!answer->text->isEmpty() || onDevice.isEmpty())) {
        qCInfo(lcApp, "Transcription server answered");
        co_return *answer->text;
    }
    m_serverFailure = answer->text ? QStringLiteral("The server heard no words.") : answer->error;
    qCCritical(lcApp, "Transcription server failed (%s) \u2014 using the on-device transcript",
               qUtf8Printable(*m_serverFailure));
    co_return onDevice;
}

QCoro::Task<> TranscriptionEngine::askServer(std::shared_ptr<TranscriptionServer> server, QByteArray wav,
                                             QString language, std::chrono::milliseconds limit,
                                             std::shared_ptr<ServerTranscript> answer) {
    *answer = co_await server->transcribe(std::move(wav), std::move(language), limit);
}

std::vector<std::int16_t> TranscriptionEngine::serverSamples(const std::vector<AnalyzerInput>& recording) {
    std::vector<std::int16_t> samples;
    if (recording.empty()) return samples;
    const AudioFormat target = AudioFormat::int16(serverSampleRate, 1);
    const AudioFormat source = recording.front().buffer.format();
    if (source == target) {
        for (const AnalyzerInput& input : recording) {
            const std::int16_t* data = input.buffer.int16Samples();
            samples.insert(samples.end(), data, data + input.buffer.frameLength());
        }
        return samples;
    }
    // Another recognizer format: mixed down and resampled as the microphone's audio is.
    std::unique_ptr<AudioConverter> converter = AudioConverter::create(source, target);
    if (!converter) return samples;
    for (const AnalyzerInput& input : recording) {
        if (!(input.buffer.format() == source)) continue;
        const double ratio = target.sampleRate / source.sampleRate;
        std::optional<AudioBuffer> out =
            AudioBuffer::allocate(target, std::int64_t(ratio * double(input.buffer.frameLength())) + 64);
        if (!out) continue;
        converter->convert(input.buffer, *out);
        samples.insert(samples.end(), out->int16Samples(), out->int16Samples() + out->frameLength());
    }
    return samples;
}

QCoro::Task<QString> TranscriptionEngine::finishOnDevice() {
    std::exception_ptr finalizeError;
    try {
        co_await withTimeout(m_clock, finalizeLimit, m_session->finalizeAndFinishThroughEndOfInput());
    } catch (...) {
        finalizeError = std::current_exception();
    }
    if (finalizeError) {
        qCCritical(lcApp, "Finalize failed or timed out (%s) — cancelling analysis",
                   qUtf8Printable(MurmurlyError::describe(finalizeError)));
        m_session->cancelAndFinishNow();
    }

    if (!m_recognitionTask) co_return m_reading->text.trimmed();

    bool timedOut = false;
    try {
        co_await withTimeout(m_clock, resultsWaitLimit, std::move(*m_recognitionTask));
    } catch (const TimeoutError&) {
        timedOut = true;
    } catch (...) {
    }
    if (timedOut) m_session->results()->cancel();
    m_recognitionTask.reset();
    if (m_reading->loadFailure) throw ModelLoadError(*m_reading->loadFailure);
    co_return m_reading->text.trimmed();
}

QCoro::Task<> TranscriptionEngine::cancel() {
    if (m_inputContinuation) {
        m_inputContinuation->finish();
        m_inputContinuation.reset();
    }
    m_session->cancelAndFinishNow();
    if (m_recognitionTask) {
        m_session->results()->cancel();
        m_recognitionTask.reset();
    }
    co_return;
}

QCoro::Task<bool> TranscriptionEngine::isModelInstalled(SpeechBackend& backend, const QString& language) {
    const QString wanted = bcp47Identifier(language);
    for (const QString& installed : backend.installedLanguages())
        if (bcp47Identifier(installed) == wanted) co_return true;
    co_return false;
}

QCoro::Task<> TranscriptionEngine::installModel(SpeechBackend& backend, const QString& language) {
    const QString wanted = bcp47Identifier(language);
    const QStringList supported = backend.supportedLanguages();
    const auto found = std::find_if(supported.begin(), supported.end(), [&](const QString& candidate) {
        return bcp47Identifier(candidate) == wanted;
    });
    if (found == supported.end()) throw MurmurlyError::modelUnsupported();
    // Nothing to do when the model is already present.
    std::unique_ptr<ModelInstallRequest> request = backend.installRequest(*found);
    if (request) co_await request->downloadAndInstall();
}

QCoro::Task<> TranscriptionEngine::withTimeout(Clock& clock, std::chrono::milliseconds limit,
                                               QCoro::Task<> operation) {
    auto race = std::make_shared<Race>();
    runOperation(race, std::move(operation));
    if (!race->decided) runSleeper(race, clock, limit);
    co_await RaceAwaiter{*race};
    if (race->error) std::rethrow_exception(race->error);
}

} // namespace murmurly
