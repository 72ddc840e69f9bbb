#include "platform/linux/PocketsphinxSession.h"

#include "platform/linux/PocketsphinxDecoder.h"
#include "platform/linux/PocketsphinxDecoderLoad.h"

#include <QCoroFuture>

#include <pocketsphinx.h>

#include <vector>

namespace murmurly {

PocketsphinxSession::PocketsphinxSession(std::shared_ptr<PocketsphinxDecoderLoad> decoder)
    : m_decoder(std::move(decoder))
    , m_results(ResultStream::create()) {
    m_doneFuture = m_done.future();
    m_done.start();
}

PocketsphinxSession::~PocketsphinxSession() {
    cancelAndFinishNow();
    if (m_thread.joinable()) m_thread.join();
}

QCoro::Task<> PocketsphinxSession::start(std::shared_ptr<AnalyzerInputStream> input) {
    // Never waits: a decoder still loading is waited for on the session's own thread, while the
    // first buffers queue up. One whose load has already failed cannot start.
    if (m_decoder->isFinished() && m_decoder->hasFailed()) {
        try {
            m_decoder->get();
        } catch (const std::exception& e) {
            throw ModelLoadError(QString::fromUtf8(e.what()));
        }
    }
    m_input = std::move(input);
    m_thread = std::thread([this] { run(); });
    co_return;
}

QCoro::Task<> PocketsphinxSession::finalizeAndFinishThroughEndOfInput() {
    {
        std::lock_guard lock(m_commandMutex);
        m_finalizeRequested = true;
    }
    m_command.notify_all();
    if (!m_thread.joinable()) ended(); // never started: nothing to settle
    QFuture<void> done = m_doneFuture;
    co_await done;
}

void PocketsphinxSession::cancelAndFinishNow() {
    {
        std::lock_guard lock(m_commandMutex);
        m_cancelRequested = true;
    }
    m_command.notify_all();
    m_decoder->wake();
    if (m_input) m_input->wake();
    if (!m_thread.joinable()) ended();
}

void PocketsphinxSession::ended() {
    std::call_once(m_endOnce, [this] {
        m_results->finish();
        m_done.finish();
    });
}

void PocketsphinxSession::run() {
    std::shared_ptr<PocketsphinxDecoder> decoder;
    try {
        // Normally loaded long before; the first dictation after start-up may wait here while
        // its audio queues up. A cancel stops the wait; the load goes on without this session.
        decoder = m_decoder->getUnless([this] { return m_cancelRequested.load(); });
    } catch (const std::exception& e) {
        m_results->failToLoad(QString::fromUtf8(e.what()));
        ended();
        return;
    }
    if (!decoder) {
        ended();
        return;
    }
    std::optional<std::vector<float>> learnedMean;
    {
        std::lock_guard use(decoder->inUse());
        learnedMean = decode(*decoder);
    }
    ended();
    // After the results: the file is for the next run, not for this dictation's text.
    if (learnedMean) decoder->storeCepstralMean(*learnedMean);
}

std::optional<std::vector<float>> PocketsphinxSession::decode(PocketsphinxDecoder& decoder) {
    ps_decoder_t* ps = decoder.get();
    std::vector<std::int16_t> samples;
    bool inUtterance = false;
    bool heardWords = false;

    // The cepstral mean adapts to the speaker and microphone over dictations, which helps the
    // first words of the next one. A dictation in which nothing was recognized (silence, a muted
    // microphone, noise) must not move it, or the next dictation starts out deaf.
    const std::vector<float> meanBefore = decoder.cepstralMean();
    auto keepMeanOnlyIfHeard = [&]() -> std::optional<std::vector<float>> {
        if (!heardWords) {
            decoder.setCepstralMean(meanBefore);
            return std::nullopt;
        }
        return decoder.cepstralMean();
    };

    auto deliverUtterance = [&] {
        ps_end_utt(ps);
        const char* hypothesis = ps_get_hyp(ps, nullptr);
        // Each segment carries its leading space, so segments join as delivered.
        if (inUtterance && hypothesis && *hypothesis) {
            m_results->yield({QLatin1Char(' ') + QString::fromUtf8(hypothesis), true});
            heardWords = true;
        }
        inUtterance = false;
    };

    // Each dictation is a new stream: the noise level learned in the last one (perhaps from a
    // muted microphone's digital silence) must not decide what counts as speech in this one.
    // The cepstral mean, learned from speech only, carries over and helps the first words.
    ps_start_stream(ps);
    if (ps_start_utt(ps) < 0) {
        m_results->fail(QStringLiteral("The speech recognizer could not start."));
        return std::nullopt;
    }
    while (!m_cancelRequested) {
        std::optional<AnalyzerInput> input = m_input->next();
        if (input) {
            const AudioBuffer& buffer = input->buffer;
            const std::int64_t frames = buffer.frameLength();
            const int channels = buffer.format().channels;
            samples.resize(std::size_t(frames));
            // Mono 16-bit is what this recognizer asks for; other shapes are brought to it.
            for (std::int64_t i = 0; i < frames; ++i) {
                if (buffer.format().sampleType == AudioFormat::SampleType::int16) {
                    samples[i] = buffer.int16Samples()[i * channels];
                } else {
                    const float v = std::clamp(buffer.floatSamples()[i * channels], -1.0f, 1.0f);
                    samples[i] = std::int16_t(v * 32767.0f);
                }
            }
            ps_process_raw(ps, samples.data(), samples.size(), FALSE, FALSE);
            const bool inSpeech = ps_get_in_speech(ps);
            if (inSpeech && !inUtterance) inUtterance = true;
            if (!inSpeech && inUtterance) {
                // A pause: settle what was said so far and start the next segment.
                deliverUtterance();
                ps_start_utt(ps);
            }
            continue;
        }
        if (m_cancelRequested) break;
        if (!m_input->isFinished()) continue; // woken without news
        // All audio is in: wait for the word to settle or to drop everything.
        std::unique_lock lock(m_commandMutex);
        m_command.wait(lock, [this] { return m_finalizeRequested || m_cancelRequested; });
        if (m_cancelRequested) break;
        lock.unlock();
        deliverUtterance();
        return keepMeanOnlyIfHeard();
    }
    ps_end_utt(ps); // cancelled: the words are dropped
    return keepMeanOnlyIfHeard();
}

} // namespace murmurly
