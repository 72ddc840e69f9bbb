#include "speech/AnalyzerInputStream.h"

#include <utility>

namespace murmurly {

void AnalyzerInputStream::yield(AnalyzerInput input) {
    {
        std::lock_guard lock(m_mutex);
        if (m_finished) return;
        if (m_keeping) m_recording.push_back(input);
        m_queue.push_back(std::move(input));
    }
    m_changed.notify_one();
}

void AnalyzerInputStream::finish() {
    {
        std::lock_guard lock(m_mutex);
        m_finished = true;
    }
    m_changed.notify_all();
}

bool AnalyzerInputStream::isFinished() const {
    std::lock_guard lock(m_mutex);
    return m_finished;
}

std::optional<AnalyzerInput> AnalyzerInputStream::next() {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return !m_queue.empty() || m_finished || m_woken; });
    m_woken = false;
    if (m_queue.empty()) return std::nullopt;
    AnalyzerInput input = std::move(m_queue.front());
    m_queue.pop_front();
    return input;
}

std::optional<AnalyzerInput> AnalyzerInputStream::tryNext() {
    std::lock_guard lock(m_mutex);
    if (m_queue.empty()) return std::nullopt;
    AnalyzerInput input = std::move(m_queue.front());
    m_queue.pop_front();
    return input;
}

void AnalyzerInputStream::wake() {
    {
        std::lock_guard lock(m_mutex);
        m_woken = true;
    }
    m_changed.notify_all();
}

std::size_t AnalyzerInputStream::queued() const {
    std::lock_guard lock(m_mutex);
    return m_queue.size();
}

void AnalyzerInputStream::keepRecording() {
    std::lock_guard lock(m_mutex);
    m_keeping = true;
}

std::vector<AnalyzerInput> AnalyzerInputStream::takeRecording() {
    std::lock_guard lock(m_mutex);
    return std::exchange(m_recording, {});
}

} // namespace murmurly
