#include "platform/linux/PocketsphinxDecoder.h"

#include "core/Log.h"

#include <QDir>
#include <QFileInfo>

#include <pocketsphinx.h>
#include <sphinxbase/err.h>

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

PocketsphinxDecoder::PocketsphinxDecoder(const PocketsphinxModel& model)
    : m_model(model) {
    routeLogging();
    const QByteArray hmm = QFile::encodeName(model.acousticModel);
    const QByteArray dict = QFile::encodeName(model.dictionary);
    const QByteArray lm = QFile::encodeName(model.languageModel);
    const QByteArray rate = QByteArray::number(int(model.sampleRate));
    // Tuned for dictation, where what counts is the time from the key's release to the text:
    //  -fwdflat no, -bestpath no: pocketsphinx normally rescans the whole utterance twice more
    //    once the audio has ended (a flat-lexicon search, then a lattice best path), which costs
    //    160-400 ms on a short sentence, all of it after the release. The tree search alone runs
    //    as the audio arrives; on the LibriVox test sentences it gives the same word error rate
    //    as the default two extra passes (36.6% both with Debian's en-us model), so the extra
    //    passes buy nothing here but latency.
    //  -maxhmmpf 5000, -maxwpf 10: caps on the models and words kept alive per 10 ms frame
    //    (defaults 30000 and unlimited). The live search must keep up with speech even on a busy
    //    machine, or the words still queued at the release are decoded after it. On the test
    //    sentences these caps halve the search's processor time (14.4 s to 7.7 s for 24.7 s of
    //    audio on the development machine) with an unchanged error rate; tighter caps
    //    (-maxhmmpf 3000) or narrower beams cost several points of error rate.
    //  Beams, word penalties and the language weight stay at the model's defaults.
    //  Voice activity detection stays on (the default): the session ends an utterance at each
    //    pause, so long dictations are settled piece by piece while the user is still talking.
    cmd_ln_t* config = cmd_ln_init(nullptr, ps_args(), TRUE,                           //
                                   "-hmm", hmm.constData(), "-dict", dict.constData(), //
                                   "-lm", lm.constData(), "-samprate", rate.constData(), "-fwdflat", "no",
                                   "-bestpath", "no", "-maxhmmpf", "5000", "-maxwpf", "10", nullptr);
    if (!config)
        throw std::runtime_error("Could not configure the speech recognizer for " + lm.toStdString() + ".");
    m_decoder = ps_init(config);
    cmd_ln_free_r(config); // the decoder keeps its own reference
    if (!m_decoder)
        throw std::runtime_error("Could not load the speech model in " +
                                 QFile::encodeName(QFileInfo(model.acousticModel).path()).toStdString() +
                                 ".");
}

PocketsphinxDecoder::~PocketsphinxDecoder() {
    if (m_decoder) ps_free(m_decoder);
}

} // namespace murmurly
