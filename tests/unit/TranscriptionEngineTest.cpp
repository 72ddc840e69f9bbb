#include "speech/TranscriptionEngine.h"
#include "FakeSpeechBackend.h"
#include "LogCapture.h"
#include "ManualClock.h"
#include "speech/LanguageTag.h"
#include "speech/MurmurlyError.h"

#include <QCoreApplication>
#include <QCoroTask>

#include <gtest/gtest.h>

#include <optional>

using namespace murmurly;
using namespace std::chrono_literals;
using murmurly::testing::FakeSessionScript;
using murmurly::testing::FakeSpeechBackend;
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
