#pragma once

#include "speech/RecognizerSession.h"

#include <QFuture>
#include <QPromise>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace murmurly {

class PocketsphinxDecoder;
class PocketsphinxDecoderLoad;

// One dictation on a pocketsphinx decoder. A recognizer thread of its own decodes the audio as it
// arrives and ends an utterance at every pause, delivering its words as a final segment at once;
// at the end only the words since the last pause are left to settle. Cancelling, and destroying
// the session, never wait for a decoder that is still loading.
class PocketsphinxSession final : public RecognizerSession {
public:
    explicit PocketsphinxSession(std::shared_ptr<PocketsphinxDecoderLoad> decoder);
    ~PocketsphinxSession() override;

    std::shared_ptr<ResultStream> results() override { return m_results; }
    QCoro::Task<> start(std::shared_ptr<AnalyzerInputStream> input) override;
    QCoro::Task<> finalizeAndFinishThroughEndOfInput() override;
    void cancelAndFinishNow() override;

private:
    void run();
    // The cepstral mean learned, when words were heard (otherwise the mean is put back as it was).
    std::optional<std::vector<float>> decode(PocketsphinxDecoder& decoder);
    void ended();

    std::shared_ptr<PocketsphinxDecoderLoad> m_decoder;
    std::shared_ptr<ResultStream> m_results;
    std::shared_ptr<AnalyzerInputStream> m_input;
    std::thread m_thread;

    std::mutex m_commandMutex;
    std::condition_variable m_command;
    std::atomic<bool> m_finalizeRequested{false};
    std::atomic<bool> m_cancelRequested{false};

    // Fulfilled by the recognizer thread when the session has ended.
    QPromise<void> m_done;
    QFuture<void> m_doneFuture;
    std::once_flag m_endOnce;
};

} // namespace murmurly
