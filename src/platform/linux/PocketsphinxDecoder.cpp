#include "platform/linux/PocketsphinxDecoder.h"

#include "core/Log.h"

#include <QDir>
#include <QFileInfo>

#include <pocketsphinx.h>
#include <sphinxbase/ckd_alloc.h>
#include <sphinxbase/cmn.h>
#include <sphinxbase/err.h>
#include <sphinxbase/fe.h>
#include <sphinxbase/feat.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace murmurly {

namespace {

void logFromPocketsphinx(void*, err_lvl_t, const char* format, ...) {
    char line[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    const QByteArray text = QByteArray(line).trimmed();
    if (!text.isEmpty()) qCDebug(lcApp, "pocketsphinx: %s", text.constData());
}

QString firstMatching(const QDir& dir, const QStringList& patterns, const QString& avoid) {
    const QStringList names = dir.entryList(patterns, QDir::Files, QDir::Name);
    for (const QString& name : names)
        if (avoid.isEmpty() || !name.contains(avoid)) return dir.filePath(name);
    return {};
}

} // namespace

std::optional<PocketsphinxModel> PocketsphinxModel::find(const QString& folder) {
    const QDir dir(folder);
    if (!dir.exists()) return std::nullopt;
    PocketsphinxModel model;
    if (QFileInfo::exists(dir.filePath(QStringLiteral("mdef")))) {
        model.acousticModel = dir.path();
    } else {
        for (const QString& sub : dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
            if (QFileInfo::exists(dir.filePath(sub + QStringLiteral("/mdef")))) {
                model.acousticModel = dir.filePath(sub);
                break;
            }
        }
    }
    // A phonetic language model (Debian ships en-us-phone.lm.bin beside the word model) is for
    // phoneme recognition, not for words.
    model.dictionary =
        firstMatching(dir, {QStringLiteral("*.dict"), QStringLiteral("*.dic")}, QStringLiteral("phone"));
    model.languageModel = firstMatching(dir,
                                        {QStringLiteral("*.lm.bin"), QStringLiteral("*.lm"),
                                         QStringLiteral("*.arpa"), QStringLiteral("*.lm.dmp")},
                                        QStringLiteral("phone"));
    if (model.acousticModel.isEmpty() || model.dictionary.isEmpty() || model.languageModel.isEmpty())
        return std::nullopt;
    return model;
}

void PocketsphinxDecoder::routeLogging() {
    static std::once_flag once;
    std::call_once(once, [] {
        err_set_callback(&logFromPocketsphinx, nullptr);
        // The configuration table is written straight to the log file, bypassing the callback;
        // without a file it is not written at all.
        err_set_logfp(nullptr);
    });
}

PocketsphinxDecoder::PocketsphinxDecoder(const PocketsphinxModel& model, const Options& options)
    : m_model(model) {
    routeLogging();
    // Tuned for dictation, where what counts is the time from the key's release to the text:
    //  -fwdflat no, -bestpath no: pocketsphinx normally rescans the whole utterance twice more
    //    once the audio has ended (a flat-lexicon search, then a lattice best path), which costs
    //    160-400 ms on a short sentence, all of it after the release. The tree search alone runs
    //    as the audio arrives, and with the cepstral mean learned (see CepstralMeanStore) it is
    //    also the more accurate: on the LibriVox test sentences 25.4% word error rate for a file
    //    alone and 26.8% for the files in one run, against 28.2% and 31.0% with both extra passes
    //    and 31.0% and 29.6% with the best path alone.
    //  -maxhmmpf 5000, -maxwpf 10: caps on the models and words kept alive per 10 ms frame
    //    (defaults 30000 and unlimited). The live search must keep up with speech even on a busy
    //    machine, or the words still queued at the release are decoded after it. On the test
    //    sentences these caps halve the search's processor time (14.4 s to 7.7 s for 24.7 s of
    //    audio on the development machine) with an unchanged error rate (-maxhmmpf 10000 gives
    //    the same words); tighter caps (-maxhmmpf 3000) cost several points of error rate.
    //  Beams and the language weight stay at the model's defaults: wider beams (-beam 1e-60
    //    -wbeam 1e-48) change one word of the test sentences, and a heavier language weight
    //    (-lw 8 or 10) is worse overall (36.6% and 52.1% in one run).
    //  Voice activity detection stays on (the default): the session ends an utterance at each
    //    pause, so long dictations are settled piece by piece while the user is still talking.
    m_settings = {{"-hmm", QFile::encodeName(model.acousticModel)},
                  {"-dict", QFile::encodeName(model.dictionary)},
                  {"-lm", QFile::encodeName(model.languageModel)},
                  {"-samprate", QByteArray::number(int(model.sampleRate))},
                  {"-fwdflat", "no"},
                  {"-bestpath", "no"},
                  {"-maxhmmpf", "5000"},
                  {"-maxwpf", "10"}};
    for (const auto& [name, value] : options) {
        auto same = std::find_if(m_settings.begin(), m_settings.end(),
                                 [&name](const auto& setting) { return setting.first == name; });
        if (same != m_settings.end())
            same->second = value;
        else
            m_settings.append({name, value});
    }
    // Parsed like a command line; the first entry stands for the program's name.
    std::vector<char*> argv{const_cast<char*>("murmurly")};
    for (auto& [name, value] : m_settings) {
        argv.push_back(name.data());
        argv.push_back(value.data());
    }
    cmd_ln_t* config = cmd_ln_parse_r(nullptr, ps_args(), int32(argv.size()), argv.data(), TRUE);
    if (!config)
        throw std::runtime_error("Could not configure the speech recognizer for " +
                                 QFile::encodeName(model.languageModel).toStdString() + ".");
    m_decoder = ps_init(config);
    cmd_ln_free_r(config); // the decoder keeps its own reference
    if (!m_decoder)
        throw std::runtime_error("Could not load the speech model in " +
                                 QFile::encodeName(QFileInfo(model.acousticModel).path()).toStdString() +
                                 ".");
}

std::vector<float> PocketsphinxDecoder::cepstralMean() const {
    feat_t* features = ps_get_feat(m_decoder);
    std::vector<mfcc_t> mean(std::size_t(feat_cepsize(features)));
    cmn_live_get(features->cmn_struct, mean.data());
    return {mean.begin(), mean.end()};
}

bool PocketsphinxDecoder::setCepstralMean(const std::vector<float>& mean) {
    feat_t* features = ps_get_feat(m_decoder);
    if (mean.size() != std::size_t(feat_cepsize(features))) return false;
    const std::vector<mfcc_t> values(mean.begin(), mean.end());
    cmn_live_set(features->cmn_struct, values.data());
    return true;
}

std::optional<std::vector<float>> PocketsphinxDecoder::cepstralMeanOf(const std::int16_t* samples,
                                                                      std::size_t count) const {
    // The decoder's own front end holds the state of the stream it is decoding; this one is new.
    // Despite what its header says, this sphinxbase's fe_init_auto_r() takes a reference of its
    // own to the configuration (and fe_free() drops it): retaining it here as well would keep
    // the decoder's configuration alive forever.
    fe_t* frontEnd = fe_init_auto_r(ps_get_config(m_decoder));
    if (!frontEnd) return std::nullopt;
    const auto size = std::size_t(fe_get_output_size(frontEnd));
    constexpr int32 framesPerCall = 256;
    auto** frames = static_cast<mfcc_t**>(ckd_calloc_2d(framesPerCall, size, sizeof(mfcc_t)));
    std::vector<float> kept; // every frame the voice activity detection passes, one after another
    const auto add = [&](int32 n) {
        for (int32 f = 0; f < n; ++f)
            kept.insert(kept.end(), frames[f], frames[f] + size);
    };
    fe_start_stream(frontEnd);
    fe_start_utt(frontEnd);
    const int16* next = samples;
    std::size_t left = count;
    while (left > 0) {
        int32 n = framesPerCall;
        int32 firstFrame = 0;
        if (fe_process_frames(frontEnd, &next, &left, frames, &n, &firstFrame) < 0) break;
        add(n);
        if (n == 0 && left > 0) break; // no progress: too few samples for a frame
    }
    int32 last = 0;
    fe_end_utt(frontEnd, frames[0], &last);
    add(last);
    ckd_free_2d(frames);
    fe_free(frontEnd);
    const std::size_t frameCount = kept.size() / size;
    if (frameCount == 0) return std::nullopt;

    // The detector pads each stretch of speech with the frames just before it, which after a
    // long silence are silence: digital zeros or a quiet room, far below the voice in energy
    // (the first value). A few of them would drag the average energy down markedly, so frames
    // far quieter than the typical frame are left out.
    std::vector<float> energies;
    for (std::size_t f = 0; f < frameCount; ++f)
        energies.push_back(kept[f * size]);
    std::nth_element(energies.begin(), energies.begin() + std::ptrdiff_t(frameCount / 2), energies.end());
    const float floor = energies[frameCount / 2] - quieterThanSpeech;
    std::vector<double> sum(size, 0.0);
    std::size_t used = 0;
    for (std::size_t f = 0; f < frameCount; ++f) {
        const float* frame = &kept[f * size];
        if (frame[0] < floor) continue;
        for (std::size_t i = 0; i < size; ++i)
            sum[i] += double(frame[i]);
        ++used;
    }
    std::vector<float> mean;
    for (double total : sum)
        mean.push_back(float(total / double(used)));
    return mean;
}

void PocketsphinxDecoder::useCepstralMeanStore(CepstralMeanStore store, const QString& language) {
    const std::size_t size = cepstralMean().size();
    if (const std::optional<std::vector<float>> stored = store.load(language, m_model.acousticModel, size)) {
        setCepstralMean(*stored);
        qCDebug(lcApp, "Speech: the cepstral mean stored for %s is used", qPrintable(language));
    }
    m_meanStore = std::move(store);
    m_language = language;
}

void PocketsphinxDecoder::storeCepstralMean(const std::vector<float>& mean) const {
    if (!m_meanStore) return;
    if (!m_meanStore->save(m_language, m_model.acousticModel, mean))
        qCWarning(lcApp, "Speech: could not store the cepstral mean in %s",
                  qPrintable(m_meanStore->filePath(m_language)));
}

PocketsphinxDecoder::~PocketsphinxDecoder() {
    if (m_decoder) ps_free(m_decoder);
}

} // namespace murmurly
