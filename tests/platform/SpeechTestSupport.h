#pragma once

#include "ManualClock.h"
#include "RunTask.h"
#include "SpeechCorpus.h"
#include "speech/AnalyzerInputStream.h"
#include "speech/AudioBuffer.h"
#include "speech/TranscriptionEngine.h"

#include <QCoroTask>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

#include <gtest/gtest.h>

#include <exception>
#include <memory>

namespace murmurly::testing {

// QCoro::waitFor never returns from a task that throws; this carries the exception out.
template <typename T> T runTask(QCoro::Task<T> task) {
    std::exception_ptr error;
    std::optional<T> value;
    auto wrapper = [](QCoro::Task<T> inner, std::optional<T>& out, std::exception_ptr& err) -> QCoro::Task<> {
        try {
            out = co_await std::move(inner);
        } catch (...) {
            err = std::current_exception();
        }
    };
    QCoro::waitFor(wrapper(std::move(task), value, error));
    if (error) std::rethrow_exception(error);
    return std::move(*value);
}

inline void runTask(QCoro::Task<> task) {
    std::exception_ptr error;
    auto wrapper = [](QCoro::Task<> inner, std::exception_ptr& err) -> QCoro::Task<> {
        try {
            co_await std::move(inner);
        } catch (...) {
            err = std::current_exception();
        }
    };
    QCoro::waitFor(wrapper(std::move(task), error));
    if (error) std::rethrow_exception(error);
}

// Lets the main loop run for `ms` milliseconds: queued results arrive, and the time limits that
// finish() no longer needs run out (they check in at least every quarter second).
inline void runEventLoopFor(int ms) {
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

// Ends a dictation of an engine made with `clock` and returns its transcript. The clock stands
// still until the answer is in, so a live dictation's time limits play no part: a loaded machine
// may decode more slowly than they allow, and what these tests measure is what is recognized.
// Two minutes without an answer fail the test instead of hanging it.
inline QString finishUnhurried(TranscriptionEngine& engine, ManualClock& clock) {
    Bounded<QString> text = runBounded(engine.finish(), std::chrono::minutes(2));
    EXPECT_TRUE(text.finished) << "the recognizer gave no answer within two minutes";
    clock.advance(std::chrono::hours(1)); // ends the limits' sleeps
    runEventLoopFor(300);
    return text.value.value_or(QString());
}

// Writes 16 kHz mono samples into a recognizer input in the buffer size the capture path
// produces (4096 microphone frames at 48 kHz become 1365 or so).
inline void feed(AnalyzerInputStream& input, const std::vector<std::int16_t>& samples,
                 std::size_t framesPerBuffer = 1365) {
    for (std::size_t offset = 0; offset < samples.size(); offset += framesPerBuffer) {
        const std::size_t frames = std::min(framesPerBuffer, samples.size() - offset);
        AudioBuffer buffer = *AudioBuffer::allocate(AudioFormat::int16(16000, 1), std::int64_t(frames));
        buffer.setFrameLength(std::int64_t(frames));
        std::copy_n(samples.begin() + std::ptrdiff_t(offset), frames, buffer.int16Samples());
        input.yield(AnalyzerInput{std::move(buffer)});
    }
}

// Waits (bounded by two minutes) until the recognizer has taken every buffer fed to it. Audio
// fed all at once takes the recognizer a while to work through, longer on a busy machine, and
// finish() allows only a few seconds for the last words: what a test measures is the
// recognition, not whether the machine kept up.
inline void waitUntilTaken(AnalyzerInputStream& input) {
    QElapsedTimer waited;
    waited.start();
    while (input.queued() > 0 && waited.elapsed() < 120000)
        runEventLoopFor(20);
}

} // namespace murmurly::testing
