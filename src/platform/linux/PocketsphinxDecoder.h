#pragma once

#include <QString>

#include <mutex>
#include <optional>
#include <stdexcept>

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
    // Throws std::runtime_error with a sentence for the user when the model cannot be loaded.
    explicit PocketsphinxDecoder(const PocketsphinxModel& model);
    ~PocketsphinxDecoder();
    PocketsphinxDecoder(const PocketsphinxDecoder&) = delete;
    PocketsphinxDecoder& operator=(const PocketsphinxDecoder&) = delete;

    ps_decoder_t* get() const { return m_decoder; }
    std::mutex& inUse() { return m_inUse; }
    const PocketsphinxModel& model() const { return m_model; }

    // Sends pocketsphinx's own messages to the program's log at debug level. Idempotent.
    static void routeLogging();

private:
    PocketsphinxModel m_model;
    ps_decoder_t* m_decoder = nullptr;
    std::mutex m_inUse;
};

} // namespace murmurly
