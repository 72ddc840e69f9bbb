#pragma once

#include "speech/AnalyzerInput.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

namespace murmurly {

// The audio of one dictation on its way to the recognizer: an unbounded queue written by the
// capture thread and read by the recognizer thread. Writing never waits for the reader, so a
// slow recognizer can never hold up capture; bursts simply queue.
class AnalyzerInputStream {
public:
    // Appends one input. Ignored after finish().
    void yield(AnalyzerInput input);
    // Ends the audio: the reader drains what is queued and then sees the end.
    void finish();
    bool isFinished() const;

    // Reader side. Waits until an input is available (returned), the stream is finished and
    // drained, or wake() was called (both return nothing; tell them apart with isFinished()).
    std::optional<AnalyzerInput> next();
    // Takes the next input if one is queued, without waiting.
    std::optional<AnalyzerInput> tryNext();
    // Makes a waiting next() return so the reader can look at other work.
    void wake();

    std::size_t queued() const;

    // From now on every input yielded is also kept, so that the whole recording can be had at the
    // end exactly as the reader was fed it.
    void keepRecording();
    // What was kept so far, handed over (the stream keeps nothing more of it).
    std::vector<AnalyzerInput> takeRecording();

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<AnalyzerInput> m_queue;
    bool m_finished = false;
    bool m_woken = false;
    bool m_keeping = false;
    std::vector<AnalyzerInput> m_recording;
};

} // namespace murmurly
