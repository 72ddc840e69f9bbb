#include "speech/TranscriptionEngine.h"
#include "FakeSpeechBackend.h"
#include "FakeTranscriptionServer.h"
#include "LogCapture.h"
#include "ManualClock.h"
#include "TestSignals.h"
#include "speech/FileTranscriber.h"
#include "speech/LanguageTag.h"
#include "speech/MurmurlyError.h"
#include "speech/WavFile.h"

#include <QCoreApplication>
#include <QCoroTask>

#include <gtest/gtest.h>

#include <optional>

using namespace murmurly;
using namespace std::chrono_literals;
using murmurly::testing::FakeSessionScript;
using murmurly::testing::FakeSpeechBackend;
using murmurly::testing::FakeTranscriptionServer;
using murmurly::testing::LogCapture;
using murmurly::testing::ManualClock;

namespace {

TranscriptionResult finalResult(const QString& text) {
    return {text, true};
}

// Runs queued work (results travel through the event loop) without moving virtual time.
void drainEvents() {
    for (int i = 0; i < 20; ++i)
        QCoreApplication::processEvents();
}

// At the end of a test: runs out the time limits that finish() abandoned and the queued
// resumptions of readers, so that no coroutine is left suspended when the clock goes away.
struct Settle {
    ManualClock& clock;
    ~Settle() {
        clock.advance(std::chrono::hours(1));
        drainEvents();
    }
};

// Starts finish() and keeps what it returns, so a test can move time while it is pending.
struct PendingFinish {
    std::optional<QString> text;
    QCoro::Task<> task;

    explicit PendingFinish(TranscriptionEngine& engine)
        : task(run(engine, text)) {}

    static QCoro::Task<> run(TranscriptionEngine& engine, std::optional<QString>& out) {
        out = co_await engine.finish();
    }
};

// QCoro::waitFor never returns from a task that throws; these carry the exception out.
QCoro::Task<> catching(QCoro::Task<> task, std::exception_ptr& error) {
    try {
        co_await std::move(task);
    } catch (...) {
        error = std::current_exception();
    }
}

void run(QCoro::Task<> task) {
    std::exception_ptr error;
    QCoro::waitFor(catching(std::move(task), error));
    if (error) std::rethrow_exception(error);
}

std::shared_ptr<AnalyzerInputStream> startEngine(TranscriptionEngine& engine) {
    std::shared_ptr<AnalyzerInputStream> input;
    run([](TranscriptionEngine& e, std::shared_ptr<AnalyzerInputStream>& out) -> QCoro::Task<> {
        out = co_await e.start();
    }(engine, input));
    return input;
}

} // namespace

TEST(TranscriptionEngine, TwoFinalSegmentsStartingWithASpaceAreJoinedAsDeliveredAndTrimmedOnce) {
    FakeSpeechBackend backend;
    backend.script.finalResults = {finalResult(QStringLiteral(" world")),
                                   {QStringLiteral(" ignored"), false}};
    ManualClock clock;
    Settle settle{clock};
    TranscriptionEngine engine(backend, clock, QStringLiteral("en-US"));
    startEngine(engine);
    // One segment finalised while the user was still speaking, one at the end, one provisional.
    backend.lastSession->results()->yield(finalResult(QStringLiteral(" hello ")));
    backend.lastSession->results()->yield({QStringLiteral(" hel"), false});
    drainEvents();

    PendingFinish finish(engine);
    drainEvents();
    ASSERT_TRUE(finish.text.has_value());
    EXPECT_EQ(*finish.text, QStringLiteral("hello  world"));
    EXPECT_EQ(backend.lastSession->finalizeCalls(), 1);
    EXPECT_EQ(backend.lastSession->cancelCalls(), 0);
}

TEST(TranscriptionEngine, ADictationWithNoSpeechReturnsAnEmptyText) {
    FakeSpeechBackend backend;
    ManualClock clock;
    Settle settle{clock};
    TranscriptionEngine engine(backend, clock, QStringLiteral("en-US"));
    auto input = startEngine(engine);
    ASSERT_TRUE(input);
    input->yield(AnalyzerInput{*AudioBuffer::allocate(AudioFormat::int16(16000, 1), 1600)});
    PendingFinish finish(engine);
    drainEvents();
    ASSERT_TRUE(finish.text.has_value());
    EXPECT_EQ(*finish.text, QString());
    // The audio stream was ended before finalisation.
    EXPECT_TRUE(backend.lastSession->input()->isFinished());
}

TEST(TranscriptionEngine, AFinalisationThatHangsReturnsAfterEightSecondsWithWhatWasFinalisedBefore) {
    LogCapture log;
    FakeSpeechBackend backend;
    backend.script.finalize = FakeSessionScript::Finalize::hangs;
    ManualClock clock;
    Settle settle{clock};
    TranscriptionEngine engine(backend, clock, QStringLiteral("en-US"));
    startEngine(engine);
    backend.lastSession->results()->yield(finalResult(QStringLiteral(" said before release")));
    drainEvents();

    const auto begin = clock.now();
    PendingFinish finish(engine);
    drainEvents();
    clock.advance(7999ms);
    drainEvents();
    EXPECT_FALSE(finish.text.has_value()) << "returned before the limit";
    EXPECT_EQ(backend.lastSession->cancelCalls(), 0);

    clock.advance(1ms);
    drainEvents();
    ASSERT_TRUE(finish.text.has_value());
    EXPECT_EQ(*finish.text, QStringLiteral("said before release"));
    EXPECT_EQ(clock.now() - begin, 8s);
    EXPECT_EQ(backend.lastSession->cancelCalls(), 1);
    EXPECT_EQ(
        log.messages(QtCriticalMsg),
        QStringList{QStringLiteral("Finalize failed or timed out (TimeoutError) — cancelling analysis")});
}

TEST(TranscriptionEngine, AResultsReaderThatNeverEndsIsGivenUpAfterThreeMoreSeconds) {
    LogCapture log;
    FakeSpeechBackend backend;
    backend.script.finalize = FakeSessionScript::Finalize::hangs;
    backend.script.endResultsOnCancel = false;
    ManualClock clock;
    Settle settle{clock};
    TranscriptionEngine engine(backend, clock, QStringLiteral("en-US"));
    startEngine(engine);
    backend.lastSession->results()->yield(finalResult(QStringLiteral(" kept")));
    drainEvents();

    const auto begin = clock.now();
    PendingFinish finish(engine);
    drainEvents();
    clock.advance(8s);
    drainEvents();
    EXPECT_FALSE(finish.text.has_value());
    clock.advance(2999ms);
    drainEvents();
    EXPECT_FALSE(finish.text.has_value());
    clock.advance(1ms);
    drainEvents();
    ASSERT_TRUE(finish.text.has_value());
    EXPECT_EQ(*finish.text, QStringLiteral("kept"));
    EXPECT_EQ(clock.now() - begin, 11s);
    // The reader is cancelled: results that come later are not appended, and nothing else is logged.
    backend.lastSession->results()->yield(finalResult(QStringLiteral(" late")));
    drainEvents();
    EXPECT_EQ(log.messages(QtCriticalMsg).size(), 1);
}

TEST(TranscriptionEngine, AReaderStillBusyAfterANormalFinalisationIsGivenUpAfterThreeSeconds) {
    FakeSpeechBackend backend;
    backend.script.finalResults = {finalResult(QStringLiteral(" done"))};
    backend.script.endResultsOnFinalize = false;
    ManualClock clock;
    Settle settle{clock};
    TranscriptionEngine engine(backend, clock, QStringLiteral("en-US"));
    startEngine(engine);
    const auto begin = clock.now();
    PendingFinish finish(engine);
    drainEvents();
    EXPECT_FALSE(finish.text.has_value());
    clock.advance(3s);
    drainEvents();
    ASSERT_TRUE(finish.text.has_value());
    EXPECT_EQ(*finish.text, QStringLiteral("done"));
    EXPECT_EQ(clock.now() - begin, 3s);
    EXPECT_EQ(backend.lastSession->cancelCalls(), 0);
}

TEST(TranscriptionEngine, AFailedFinalisationIsLoggedCancelledAndStillReturnsTheText) {
    LogCapture log;
    FakeSpeechBackend backend;
    backend.script.finalize = FakeSessionScript::Finalize::fails;
    ManualClock clock;
    Settle settle{clock};
    TranscriptionEngine engine(backend, clock, QStringLiteral("en-US"));
    startEngine(engine);
    backend.lastSession->results()->yield(finalResult(QStringLiteral("partial ")));
    drainEvents();
    PendingFinish finish(engine);
    drainEvents();
    ASSERT_TRUE(finish.text.has_value());
    EXPECT_EQ(*finish.text, QStringLiteral("partial"));
    EXPECT_EQ(backend.lastSession->cancelCalls(), 1);
    EXPECT_EQ(log.messages(QtCriticalMsg),
              QStringList{QStringLiteral(
                  "Finalize failed or timed out (the recognizer could not finalise) — cancelling analysis")});
}

TEST(TranscriptionEngine, AResultsStreamFailureIsLoggedAndTheTextSoFarIsReturned) {
    LogCapture log;
    FakeSpeechBackend backend;
    ManualClock clock;
    Settle settle{clock};
    TranscriptionEngine engine(backend, clock, QStringLiteral("en-US"));
    startEngine(engine);
    backend.lastSession->results()->yield(finalResult(QStringLiteral(" first part")));
    backend.lastSession->results()->fail(QStringLiteral("decoder crashed"));
    drainEvents();
    EXPECT_EQ(log.messages(QtCriticalMsg),
              QStringList{QStringLiteral("Transcriber results stream failed: decoder crashed")});
    PendingFinish finish(engine);
    drainEvents();
    ASSERT_TRUE(finish.text.has_value());
    EXPECT_EQ(*finish.text, QStringLiteral("first part"));
}

TEST(TranscriptionEngine, ARecognizerThatCannotStartMakesStartThrow) {
    FakeSpeechBackend backend;
    backend.script.startError = QStringLiteral("no decoder");
    ManualClock clock;
    Settle settle{clock};
    TranscriptionEngine engine(backend, clock, QStringLiteral("en-US"));
    EXPECT_THROW(startEngine(engine), std::runtime_error);
}

TEST(TranscriptionEngine, CancelEndsTheAudioStopsTheRecognizerAndDropsLaterResults) {
    FakeSpeechBackend backend;
    ManualClock clock;
    Settle settle{clock};
    TranscriptionEngine engine(backend, clock, QStringLiteral("en-US"));
    auto input = startEngine(engine);
    run(engine.cancel());
    EXPECT_TRUE(input->isFinished());
    EXPECT_EQ(backend.lastSession->cancelCalls(), 1);
    EXPECT_EQ(backend.lastSession->finalizeCalls(), 0);
    // Audio written after the cancel goes nowhere.
    input->yield(AnalyzerInput{*AudioBuffer::allocate(AudioFormat::int16(16000, 1), 10)});
    EXPECT_EQ(input->queued(), 0u);
}

TEST(TranscriptionEngine, IsModelInstalledComparesIdentifiersExactly) {
    FakeSpeechBackend backend;
    backend.installed = {QStringLiteral("en-GB")};
    EXPECT_FALSE(QCoro::waitFor(TranscriptionEngine::isModelInstalled(backend, QStringLiteral("en-US"))));
    EXPECT_FALSE(QCoro::waitFor(TranscriptionEngine::isModelInstalled(backend, QStringLiteral("en"))));
    EXPECT_TRUE(QCoro::waitFor(TranscriptionEngine::isModelInstalled(backend, QStringLiteral("en-GB"))));
    // The same identifier spelled the POSIX way is the same identifier.
    EXPECT_TRUE(QCoro::waitFor(TranscriptionEngine::isModelInstalled(backend, QStringLiteral("en_GB"))));
}

TEST(TranscriptionEngine, InstallModelForALanguageWhoseModelIsPresentReturnsAtOnceWithoutDownloading) {
    FakeSpeechBackend backend;
    backend.installed = {QStringLiteral("en-US")};
    backend.supported = {QStringLiteral("en-GB"), QStringLiteral("en-US")};
    auto task = TranscriptionEngine::installModel(backend, QStringLiteral("en-US"));
    EXPECT_TRUE(task.isReady());
    run(std::move(task));
    EXPECT_EQ(backend.downloads, 0);
    EXPECT_EQ(backend.requestedInstalls, QStringList{QStringLiteral("en-US")});

    run(TranscriptionEngine::installModel(backend, QStringLiteral("en-GB")));
    EXPECT_EQ(backend.downloads, 1);
}

TEST(TranscriptionEngine, InstallModelForAnUnsupportedLanguageThrowsModelUnsupported) {
    FakeSpeechBackend backend;
    backend.supported = {QStringLiteral("en-US")};
    try {
        run(TranscriptionEngine::installModel(backend, QStringLiteral("de-DE")));
        FAIL() << "installModel should have thrown";
    } catch (const MurmurlyError& error) {
        EXPECT_EQ(error.code(), MurmurlyError::Code::modelUnsupported);
        // The description names en-US whatever was asked for.
        EXPECT_EQ(error.description(),
                  QStringLiteral("en-US is not supported by SpeechTranscriber on this system."));
    }
    EXPECT_EQ(backend.downloads, 0);
}

TEST(MurmurlyError, CasesInOrderWithTheirDescriptions) {
    EXPECT_EQ(int(MurmurlyError::Code::noAudioFormat), 0);
    EXPECT_EQ(int(MurmurlyError::Code::audioConverterUnavailable), 1);
    EXPECT_EQ(int(MurmurlyError::Code::modelUnsupported), 2);
    EXPECT_EQ(MurmurlyError::noAudioFormat().description(),
              QStringLiteral("SpeechTranscriber reported no compatible audio format."));
    EXPECT_STREQ(MurmurlyError::audioConverterUnavailable().what(),
                 "Could not create an audio converter for the mic format.");
    EXPECT_EQ(MurmurlyError::modelUnsupported().description(),
              QStringLiteral("en-US is not supported by SpeechTranscriber on this system."));
}

TEST(LanguageTag, SpellsIdentifiersTheBcp47Way) {
    EXPECT_EQ(bcp47Identifier(QStringLiteral("en-us")), QStringLiteral("en-US"));
    EXPECT_EQ(bcp47Identifier(QStringLiteral("en_US")), QStringLiteral("en-US"));
    EXPECT_EQ(bcp47Identifier(QStringLiteral("zh-hant-tw")), QStringLiteral("zh-Hant-TW"));
    EXPECT_EQ(bcp47Identifier(QStringLiteral("es-419")), QStringLiteral("es-419"));
    EXPECT_EQ(bcp47Identifier(QStringLiteral("FR")), QStringLiteral("fr"));
}

// ---- with a transcription server beside the recognizer ----

namespace {

// Feeds `samples` to the engine's input in buffers of 4000 frames, as the capture thread does.
void feed(AnalyzerInputStream& input, const std::vector<std::int16_t>& samples) {
    for (std::size_t at = 0; at < samples.size(); at += 4000) {
        const std::size_t n = std::min<std::size_t>(4000, samples.size() - at);
        std::optional<AudioBuffer> buffer =
            AudioBuffer::allocate(AudioFormat::int16(16000, 1), std::int64_t(n));
        std::copy_n(samples.begin() + std::ptrdiff_t(at), n, buffer->int16Samples());
        buffer->setFrameLength(std::int64_t(n));
        input.yield(AnalyzerInput{std::move(*buffer)});
    }
}

// What the recognizer session was fed, drained from its input.
std::vector<std::int16_t> fedToRecognizer(AnalyzerInputStream& input) {
    std::vector<std::int16_t> out;
    while (std::optional<AnalyzerInput> next = input.tryNext())
        out.insert(out.end(), next->buffer.int16Samples(),
                   next->buffer.int16Samples() + next->buffer.frameLength());
    return out;
}

std::vector<std::int16_t> spoken() {
    using namespace murmurly::testing;
    return joined(
        {silence(16000, 0.3), tone(16000, 0.7, -25, 300), silence(16000, 0.2), tone(16000, 0.4, -30, 500)});
}

struct ServerDictation {
    FakeSpeechBackend backend;
    ManualClock clock;
    std::shared_ptr<FakeTranscriptionServer> server = std::make_shared<FakeTranscriptionServer>();
    std::optional<TranscriptionEngine> engine;
    std::shared_ptr<AnalyzerInputStream> input;

    ServerDictation() { backend.script.finalResults = {finalResult(QStringLiteral(" the device's words"))}; }
    ~ServerDictation() {
        server->release();
        clock.advance(std::chrono::hours(1));
        drainEvents();
    }
    void start() {
        engine.emplace(backend, clock, QStringLiteral("en-US"), server);
        input = startEngine(*engine);
    }
};

} // namespace

TEST(TranscriptionEngineWithServer, ServerTextIsReturnedWhenTheServerAnswers) {
    ServerDictation d;
    d.start();
    feed(*d.input, spoken());
    PendingFinish finish(*d.engine);
    drainEvents();
    ASSERT_TRUE(finish.text.has_value());
    EXPECT_EQ(*finish.text, QStringLiteral("the server's words"));
    EXPECT_FALSE(d.engine->serverFailure());
    EXPECT_TRUE(d.engine->askedServer());
    ASSERT_EQ(d.server->calls.size(), 1u);
    EXPECT_EQ(d.server->calls[0].language, QStringLiteral("en-US"));
    EXPECT_EQ(d.server->calls[0].limit, TranscriptionEngine::finalizeLimit);
    // The on-device recognizer still heard the whole dictation.
    EXPECT_EQ(d.backend.lastSession->finalizeCalls(), 1);
}

TEST(TranscriptionEngineWithServer, PostedWavDecodesToExactlyTheSamplesTheRecognizerWasFed) {
    ServerDictation d;
    d.start();
    const std::vector<std::int16_t> samples = spoken();
    feed(*d.input, samples);
    PendingFinish finish(*d.engine);
    drainEvents();
    ASSERT_EQ(d.server->calls.size(), 1u);

    QString error;
    const std::optional<WavFile> wav = WavFile::parse(d.server->calls[0].wav, error);
    ASSERT_TRUE(wav) << error.toStdString();
    EXPECT_EQ(wav->format(), AudioFormat::int16(16000, 1));
    EXPECT_EQ(wav->bitsPerSample(), 16);
    const std::vector<std::int16_t> fed = fedToRecognizer(*d.backend.lastSession->input());
    EXPECT_EQ(fed, samples);
    ASSERT_EQ(wav->frameCount(), std::int64_t(fed.size()));
    EXPECT_TRUE(std::equal(fed.begin(), fed.end(), wav->audio().int16Samples()));
}

TEST(TranscriptionEngineWithServer, ServerFailureReturnsTheOnDeviceTextAndSaysWhy) {
    ServerDictation d;
    d.server->answer = ServerTranscript::failure(QStringLiteral("The server answered with status 500."));
    d.start();
    feed(*d.input, spoken());
    LogCapture log;
    PendingFinish finish(*d.engine);
    drainEvents();
    ASSERT_TRUE(finish.text.has_value());
    EXPECT_EQ(*finish.text, QStringLiteral("the device's words"));
    ASSERT_TRUE(d.engine->serverFailure());
    EXPECT_EQ(*d.engine->serverFailure(), QStringLiteral("The server answered with status 500."));
    EXPECT_TRUE(log.allText().contains(
        QStringLiteral("Transcription server failed (The server answered with status 500.)")));
    EXPECT_FALSE(log.allText().contains(QStringLiteral("the device's words")));
}

TEST(TranscriptionEngineWithServer, ServerThatNeverAnswersIsGivenUpAtTheFinalisationLimit) {
    ServerDictation d;
    d.server->hangs = true;
    d.start();
    feed(*d.input, spoken());
    PendingFinish finish(*d.engine);
    drainEvents();
    EXPECT_FALSE(finish.text.has_value());
    d.clock.advance(TranscriptionEngine::finalizeLimit - 1s);
    drainEvents();
    EXPECT_FALSE(finish.text.has_value()) << "the server still has time";
    d.clock.advance(2s);
    drainEvents();
    ASSERT_TRUE(finish.text.has_value());
    EXPECT_EQ(*finish.text, QStringLiteral("the device's words"));
    ASSERT_TRUE(d.engine->serverFailure());
    EXPECT_TRUE(d.engine->serverFailure()->contains(QStringLiteral("8 seconds")));
}

TEST(TranscriptionEngineWithServer, AServerLimitSetForTheRecordingIsWhatTheServerIsGiven) {
    ServerDictation d;
    d.server->hangs = true;
    d.start();
    d.engine->setServerLimit(30s);
    feed(*d.input, spoken());
    PendingFinish finish(*d.engine);
    drainEvents();
    ASSERT_EQ(d.server->calls.size(), 1u);
    EXPECT_EQ(d.server->calls[0].limit, 30s);
    d.clock.advance(29s);
    drainEvents();
    EXPECT_FALSE(finish.text.has_value()) << "the server still has time";
    d.server->release();
    drainEvents();
    ASSERT_TRUE(finish.text.has_value());
    EXPECT_EQ(*finish.text, QStringLiteral("the server's words"));
    EXPECT_FALSE(d.engine->serverFailure());
}

TEST(TranscriptionEngineWithServer, RecordingWithoutSpeechIsNotSent) {
    ServerDictation d;
    d.backend.script.finalResults.clear();
    d.start();
    feed(*d.input, murmurly::testing::silence(16000, 2));
    PendingFinish finish(*d.engine);
    drainEvents();
    ASSERT_TRUE(finish.text.has_value());
    EXPECT_EQ(*finish.text, QString());
    EXPECT_TRUE(d.server->calls.empty());
    EXPECT_FALSE(d.engine->askedServer());
    EXPECT_FALSE(d.engine->serverFailure());
}

TEST(TranscriptionEngineWithServer, EmptyServerTextLosesNothingTheDeviceHeard) {
    ServerDictation d;
    d.server->answer = ServerTranscript::transcript(QString());
    d.start();
    feed(*d.input, spoken());
    PendingFinish finish(*d.engine);
    drainEvents();
    ASSERT_TRUE(finish.text.has_value());
    EXPECT_EQ(*finish.text, QStringLiteral("the device's words"));
    EXPECT_TRUE(d.engine->serverFailure());
}

TEST(TranscriptionEngineWithServer, WithoutAServerNothingIsKeptForIt) {
    FakeSpeechBackend backend;
    ManualClock clock;
    Settle settle{clock};
    TranscriptionEngine engine(backend, clock, QStringLiteral("en-US"));
    auto input = startEngine(engine);
    feed(*input, spoken());
    EXPECT_TRUE(input->takeRecording().empty());
    PendingFinish finish(engine);
    drainEvents();
    EXPECT_FALSE(engine.askedServer());
}

// A file is transcribed with nobody waiting on a key: a ten-second recording gives the server
// the dictation's limit plus twice its length, not the dictation's limit alone.
TEST(FileTranscriberWithServer, TheServerIsGivenTimeInProportionToTheRecording) {
    ServerDictation d;
    d.backend.format = AudioFormat::int16(16000, 1);
    const std::vector<std::int16_t> tenSeconds = murmurly::testing::joined(
        {spoken(), murmurly::testing::silence(16000, 10.0 - double(spoken().size()) / 16000.0)});
    std::optional<AudioBuffer> audio =
        AudioBuffer::allocate(AudioFormat::int16(16000, 1), std::int64_t(tenSeconds.size()));
    ASSERT_TRUE(audio);
    std::copy(tenSeconds.begin(), tenSeconds.end(), audio->int16Samples());
    audio->setFrameLength(std::int64_t(tenSeconds.size()));

    FileTranscriber transcriber(d.backend, d.clock);
    std::optional<QString> text;
    auto transcribe = [&]() -> QCoro::Task<> {
        text = co_await transcriber.transcribe(*audio, QStringLiteral("en-US"), d.server);
    };
    QCoro::Task<> task = transcribe();
    // Virtual time runs until the transcript is there (the transcriber's own waits are bounded).
    drainEvents();
    for (int i = 0; i < 200 && !text; ++i) {
        d.clock.advance(1s);
        drainEvents();
    }
    ASSERT_TRUE(text.has_value());
    ASSERT_EQ(d.server->calls.size(), 1u);
    EXPECT_EQ(d.server->calls[0].limit, TranscriptionEngine::finalizeLimit + 20s);
    EXPECT_EQ(*text, QStringLiteral("the server's words"));
}
