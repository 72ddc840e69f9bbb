#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>
#include <vector>

namespace murmurly::testing {

// 16-bit mono PCM read from a WAV file.
struct WavAudio {
    int sampleRate = 0;
    std::vector<std::int16_t> samples;

    double duration() const { return sampleRate > 0 ? double(samples.size()) / sampleRate : 0; }
};

// Reads a 16-bit PCM WAV file (mono, or the first channel of several). Empty on failure.
WavAudio readWav(const QString& path);

// Writes 16-bit mono PCM as a WAV file.
bool writeWav(const QString& path, const std::vector<std::int16_t>& samples, int sampleRate);

// The index just past the last 10 ms window whose loudness is at least `fraction` of the
// loudest window's: where the speech in a recording ends.
std::size_t endOfSpeech(const WavAudio& audio, double fraction = 0.1);

// One recorded sentence with what is said in it.
struct Utterance {
    QString id;
    QString wavPath;
    QString reference; // lower-case words separated by single spaces
};

// The LibriVox sentences that Debian's pocketsphinx-testdata ships with their transcripts.
QString libriVoxFolder();
QList<Utterance> libriVoxUtterances();

// Word-level edit distance between a reference and a hypothesis, and the reference length.
struct WordErrors {
    int errors = 0;
    int referenceWords = 0;
    double rate() const { return referenceWords > 0 ? 100.0 * errors / referenceWords : 0; }
    WordErrors& operator+=(const WordErrors& other) {
        errors += other.errors;
        referenceWords += other.referenceWords;
        return *this;
    }
};
WordErrors wordErrors(const QString& reference, const QString& hypothesis);

// What Debian's own pocketsphinx_continuous makes of a file with its default settings, and how
// long the whole run took (model load included).
struct ReferenceDecode {
    QString text;
    double seconds = 0;
    bool ok = false;
};
ReferenceDecode decodeWithPocketsphinxContinuous(const QString& wavPath);

} // namespace murmurly::testing
