#pragma once

#include "speech/TranscriptionResult.h"

#include <QCoro/QCoroTask>
#include <QString>

#include <coroutine>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>

class QThread;

namespace murmurly {

// Thrown by ResultStream::next() when the recognizer reported a failure.
class RecognitionError : public std::runtime_error {
public:
    explicit RecognitionError(const QString& description)
        : std::runtime_error(description.toStdString()) {}
};

// The recognizer's model could not be loaded: no dictation in that language can start until the
// model is fixed. Thrown by a session's start() when the load has already failed, and by
// ResultStream::next() when it fails while a dictation runs.
class ModelLoadError : public RecognitionError {
public:
    using RecognitionError::RecognitionError;
};

// The results of one recognizer session, carried from the recognizer thread to the thread that
// created the stream (the main thread), where a coroutine reads them in order. Writers may be on
// any thread; the reader is resumed through its thread's event loop, never inside a writer.
class ResultStream : public std::enable_shared_from_this<ResultStream> {
public:
    static std::shared_ptr<ResultStream> create();

    // Writer side, any thread. Everything after finish(), fail() or cancel() is ignored.
    void yield(TranscriptionResult result);
    void finish();
    void fail(const QString& description);
    // fail() for a recognizer whose model could not be loaded: next() throws ModelLoadError.
    void failToLoad(const QString& description);

    // Reader side: stops reading. A waiting next() returns nothing and later results are dropped.
    void cancel();

    // The next result; nothing at the end. Throws RecognitionError after fail() once the results
    // before the failure have been read.
    QCoro::Task<std::optional<TranscriptionResult>> next();

private:
    ResultStream();
    void resumeReaderLocked(std::unique_lock<std::mutex>& lock);

    struct Awaiter;

    std::mutex m_mutex;
    QThread* m_readerThread;
    std::deque<TranscriptionResult> m_queue;
    bool m_ended = false;
    bool m_cancelled = false;
    std::optional<QString> m_failure;
    bool m_failedToLoad = false;
    std::coroutine_handle<> m_reader;
};

} // namespace murmurly
