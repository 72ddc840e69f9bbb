#include "platform/linux/PocketsphinxDecoderLoad.h"

namespace murmurly {

PocketsphinxDecoderLoad::PocketsphinxDecoderLoad(Loader load)
    : m_thread([this, load = std::move(load)] {
        std::shared_ptr<PocketsphinxDecoder> decoder;
        std::exception_ptr error;
        try {
            decoder = load();
        } catch (...) {
            error = std::current_exception();
        }
        {
            std::lock_guard lock(m_mutex);
            m_decoder = std::move(decoder);
            m_error = error;
            m_finished = true;
        }
        m_changed.notify_all();
    }) {
}

PocketsphinxDecoderLoad::~PocketsphinxDecoderLoad() {
    m_thread.join();
}

std::shared_ptr<PocketsphinxDecoder> PocketsphinxDecoderLoad::get() {
    return getUnless([] { return false; });
}

std::shared_ptr<PocketsphinxDecoder> PocketsphinxDecoderLoad::getUnless(const std::function<bool()>& giveUp) {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [&] { return m_finished || giveUp(); });
    if (!m_finished) return nullptr;
    if (m_error) std::rethrow_exception(m_error);
    return m_decoder;
}

void PocketsphinxDecoderLoad::wake() {
    // Taking the lock orders the caller's change of `giveUp` before a waiter's next look at it.
    { std::lock_guard lock(m_mutex); }
    m_changed.notify_all();
}

bool PocketsphinxDecoderLoad::isFinished() const {
    std::lock_guard lock(m_mutex);
    return m_finished;
}

bool PocketsphinxDecoderLoad::hasFailed() const {
    std::lock_guard lock(m_mutex);
    return m_finished && m_error;
}

} // namespace murmurly
