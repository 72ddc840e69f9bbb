#pragma once

#include <condition_variable>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace murmurly {

class PocketsphinxDecoder;

// A decoder loading on a thread of its own. Loading takes hundreds of milliseconds, and a
// dictation may start (and be cancelled) before it ends: waiting for it can therefore be given
// up, while the load itself goes on for the dictations that follow.
class PocketsphinxDecoderLoad {
public:
    using Loader = std::function<std::shared_ptr<PocketsphinxDecoder>()>;

    // Starts `load` at once. What it throws is the load's error.
    explicit PocketsphinxDecoderLoad(Loader load);
    // Waits for the load to end: its thread fills this object.
    ~PocketsphinxDecoderLoad();
    PocketsphinxDecoderLoad(const PocketsphinxDecoderLoad&) = delete;
    PocketsphinxDecoderLoad& operator=(const PocketsphinxDecoderLoad&) = delete;

    // The decoder, once loaded. Throws the load's error.
    std::shared_ptr<PocketsphinxDecoder> get();
    // Like get(), but returns nothing as soon as `giveUp` holds while the load still runs.
    // Whoever makes `giveUp` hold calls wake() afterwards.
    std::shared_ptr<PocketsphinxDecoder> getUnless(const std::function<bool()>& giveUp);
    // Makes waiting callers look at their `giveUp` again.
    void wake();

    bool isFinished() const;
    bool hasFailed() const;

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_finished = false;
    std::shared_ptr<PocketsphinxDecoder> m_decoder;
    std::exception_ptr m_error;
    std::thread m_thread; // last: it starts once everything above exists
};

} // namespace murmurly
