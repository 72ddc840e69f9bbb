#pragma once

#include "platform/linux/CepstralMeanStore.h"

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>

#include <cstdint>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <vector>

typedef struct ps_decoder_s ps_decoder_t;

namespace murmurly {

// The files of one pocketsphinx language model.
struct PocketsphinxModel {
    QString acousticModel; // folder holding mdef, means, variances, …
    QString dictionary;    // pronunciation dictionary (.dict)
    QString languageModel; // n-gram model (.lm.bin, .lm, .arpa)
    double sampleRate = 16000;

    // The model in `folder`, or nothing when one of the three parts is missing.
    static std::optional<PocketsphinxModel> find(const QString& folder);
};

// A loaded pocketsphinx decoder. Loading reads and indexes the whole model and takes hundreds of
// milliseconds, so one decoder per language is loaded once and reused by every dictation, one
// dictation at a time (hold inUse() while decoding).
class PocketsphinxDecoder {
public:
    // pocketsphinx options ("-beam", "1e-48") that replace or add to the program's own settings;
    // for measuring other settings, the program itself passes none.
    using Options = QList<QPair<QByteArray, QByteArray>>;

    // Throws std::runtime_error with a sentence for the user when the model cannot be loaded.
    explicit PocketsphinxDecoder(const PocketsphinxModel& model, const Options& options = {});
    ~PocketsphinxDecoder();
    PocketsphinxDecoder(const PocketsphinxDecoder&) = delete;
    PocketsphinxDecoder& operator=(const PocketsphinxDecoder&) = delete;

    ps_decoder_t* get() const { return m_decoder; }
    std::mutex& inUse() { return m_inUse; }
    const PocketsphinxModel& model() const { return m_model; }

    // Sends pocketsphinx's own messages to the program's log at debug level. Idempotent.
    static void routeLogging();

    // The settings the decoder was made with, as name/value pairs.
    const Options& settings() const { return m_settings; }

    // The running cepstral mean that every frame is normalised by; it goes on learning from
    // the speech the decoder hears. Only while holding inUse() (or before any session runs).
    std::vector<float> cepstralMean() const;
    // False, leaving the mean as it was, when `mean` has the wrong number of values.
    bool setCepstralMean(const std::vector<float>& mean);
    // The cepstral mean of the speech in 16-bit samples at the model's rate, computed by a front
    // end of its own with the decoder's settings (the same voice activity detection drops the
    // same silence); nothing when it holds no speech frames. Leaves the decoder untouched.
    std::optional<std::vector<float>> cepstralMeanOf(const std::int16_t* samples, std::size_t count) const;

    // Reads the mean that `store` keeps for `language` (the model's default stays when there is
    // none or it does not fit) and keeps the store for storeCepstralMean(). Before any session.
    void useCepstralMeanStore(CepstralMeanStore store, const QString& language);
    // Writes `mean` (a cepstralMean()) to the store, if there is one: after a dictation in which
    // words were heard, so that the next run starts where this one left off. Touches only the
    // file, so it need not hold inUse().
    void storeCepstralMean(const std::vector<float>& mean) const;

private:
    // How far below the typical frame's energy (the first cepstral value, a natural log) a frame
    // is taken for silence by cepstralMeanOf(): the voice's quiet sounds stay well within it.
    static constexpr float quieterThanSpeech = 20.0f;

    PocketsphinxModel m_model;
    Options m_settings;
    std::optional<CepstralMeanStore> m_meanStore;
    QString m_language;
    ps_decoder_t* m_decoder = nullptr;
    std::mutex m_inUse;
};

} // namespace murmurly
