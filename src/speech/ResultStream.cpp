#include "speech/ResultStream.h"

#include <QAbstractEventDispatcher>
#include <QMetaObject>
#include <QThread>

namespace murmurly {

// Holds a plain pointer: next() keeps the stream alive in its own frame.
struct ResultStream::Awaiter {
    ResultStream* stream;

    bool await_ready() {
        std::lock_guard lock(stream->m_mutex);
        return stream->m_cancelled || !stream->m_queue.empty() || stream->m_ended;
    }
    bool await_suspend(std::coroutine_handle<> handle) {
        std::lock_guard lock(stream->m_mutex);
        // Something may have arrived between await_ready and here.
        if (stream->m_cancelled || !stream->m_queue.empty() || stream->m_ended) return false;
        stream->m_reader = handle;
        return true;
    }
    void await_resume() const noexcept {}
};

std::shared_ptr<ResultStream> ResultStream::create() {
    return std::shared_ptr<ResultStream>(new ResultStream());
}

ResultStream::ResultStream()
    : m_readerThread(QThread::currentThread()) {
}

void ResultStream::yield(TranscriptionResult result) {
    std::unique_lock lock(m_mutex);
    if (m_ended || m_cancelled) return;
    m_queue.push_back(std::move(result));
    resumeReaderLocked(lock);
}

void ResultStream::finish() {
    std::unique_lock lock(m_mutex);
    if (m_ended || m_cancelled) return;
    m_ended = true;
    resumeReaderLocked(lock);
}

void ResultStream::fail(const QString& description) {
    std::unique_lock lock(m_mutex);
    if (m_ended || m_cancelled) return;
    m_ended = true;
    m_failure = description;
    resumeReaderLocked(lock);
}

void ResultStream::failToLoad(const QString& description) {
    std::unique_lock lock(m_mutex);
    if (m_ended || m_cancelled) return;
    m_ended = true;
    m_failure = description;
    m_failedToLoad = true;
    resumeReaderLocked(lock);
}

void ResultStream::cancel() {
    std::unique_lock lock(m_mutex);
    if (m_cancelled) return;
    m_cancelled = true;
    m_queue.clear();
    resumeReaderLocked(lock);
}

void ResultStream::resumeReaderLocked(std::unique_lock<std::mutex>& lock) {
    const std::coroutine_handle<> reader = std::exchange(m_reader, nullptr);
    lock.unlock();
    if (!reader) return;
    // Through the reader's event loop: the reader never runs inside a writer's call, and never on
    // the recognizer thread. The stream is kept alive until then.
    QAbstractEventDispatcher* dispatcher = QAbstractEventDispatcher::instance(m_readerThread);
    if (!dispatcher) {
        reader.resume();
        return;
    }
    QMetaObject::invokeMethod(
        dispatcher, [self = shared_from_this(), reader] { reader.resume(); }, Qt::QueuedConnection);
}

QCoro::Task<std::optional<TranscriptionResult>> ResultStream::next() {
    const std::shared_ptr<ResultStream> self = shared_from_this();
    co_await Awaiter{self.get()};
    std::lock_guard lock(m_mutex);
    if (m_cancelled) co_return std::nullopt;
    if (!m_queue.empty()) {
        TranscriptionResult result = std::move(m_queue.front());
        m_queue.pop_front();
        co_return result;
    }
    if (m_failure && m_failedToLoad) throw ModelLoadError(*m_failure);
    if (m_failure) throw RecognitionError(*m_failure);
    co_return std::nullopt;
}

} // namespace murmurly
