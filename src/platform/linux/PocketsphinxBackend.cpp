#include "platform/linux/PocketsphinxBackend.h"

#include "speech/LanguageTag.h"

#include <QDir>
#include <QStandardPaths>

namespace murmurly {

PocketsphinxBackend::PocketsphinxBackend(QStringList modelRoots, DecoderLoader load,
                                         std::optional<CepstralMeanStore> meanStore)
    : m_roots(std::move(modelRoots))
    , m_load(
          load ? std::move(load)
               : [](const PocketsphinxModel& model) { return std::make_shared<PocketsphinxDecoder>(model); })
    , m_meanStore(std::move(meanStore)) {
    PocketsphinxDecoder::routeLogging();
}

PocketsphinxBackend::~PocketsphinxBackend() {
    // Loads still running finish before the decoders they fill go away (a load's destructor
    // waits for it); sessions still holding a load keep it alive.
    std::lock_guard lock(m_mutex);
    m_decoders.clear();
}

QStringList PocketsphinxBackend::defaultModelRoots() {
    return {QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                QStringLiteral("/murmurly/models"),
            QStringLiteral("/usr/share/pocketsphinx/model")};
}

QMap<QString, PocketsphinxModel> PocketsphinxBackend::scan() const {
    QMap<QString, PocketsphinxModel> found;
    for (const QString& root : m_roots) {
        const QDir dir(root);
        for (const QString& folder : dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
            const QString language = bcp47Identifier(folder);
            if (found.contains(language)) continue; // an earlier root wins
            if (std::optional<PocketsphinxModel> model = PocketsphinxModel::find(dir.filePath(folder)))
                found.insert(language, *model);
        }
    }
    return found;
}

QStringList PocketsphinxBackend::installedLanguages() {
    return scan().keys();
}

QStringList PocketsphinxBackend::supportedLanguages() {
    return installedLanguages();
}

std::unique_ptr<ModelInstallRequest> PocketsphinxBackend::installRequest(const QString&) {
    // Every supported language is already on disk.
    return nullptr;
}

std::optional<PocketsphinxModel> PocketsphinxBackend::model(const QString& language) {
    const QMap<QString, PocketsphinxModel> models = scan();
    const auto it = models.find(bcp47Identifier(language));
    if (it == models.end()) return std::nullopt;
    return *it;
}

std::optional<AudioFormat> PocketsphinxBackend::bestAudioFormat(const QString& language) {
    const std::optional<PocketsphinxModel> found = model(language);
    if (!found) return std::nullopt;
    return AudioFormat::int16(found->sampleRate, 1);
}

std::shared_ptr<PocketsphinxDecoderLoad> PocketsphinxBackend::decoderLoad(const QString& language) {
    const QString key = bcp47Identifier(language);
    std::lock_guard lock(m_mutex);
    auto it = m_decoders.find(key);
    if (it != m_decoders.end()) {
        // A load that failed is tried again next time (the model may have been fixed since).
        if (!(*it)->hasFailed()) return *it;
        m_decoders.erase(it);
    }
    std::optional<PocketsphinxModel> found = model(key);
    auto load = std::make_shared<PocketsphinxDecoderLoad>(
        [found, key, makeDecoder = m_load, store = m_meanStore]() -> std::shared_ptr<PocketsphinxDecoder> {
            if (!found)
                throw std::runtime_error(("No speech model is installed for " + key + ".").toStdString());
            std::shared_ptr<PocketsphinxDecoder> decoder = makeDecoder(*found);
            if (store) decoder->useCepstralMeanStore(*store, key);
            return decoder;
        });
    m_decoders.insert(key, load);
    return load;
}

void PocketsphinxBackend::prepare(const QString& language) {
    decoderLoad(language);
}

std::shared_ptr<PocketsphinxDecoder> PocketsphinxBackend::decoder(const QString& language) {
    return decoderLoad(language)->get();
}

void PocketsphinxBackend::adaptToRecording(const QString& language, const std::vector<AudioBuffer>& audio) {
    std::shared_ptr<PocketsphinxDecoder> loaded;
    try {
        loaded = decoder(language);
    } catch (const std::exception&) {
        return; // the session reports the failure
    }
    std::vector<std::int16_t> samples;
    for (const AudioBuffer& buffer : audio) {
        // Only the format this recognizer asks for: 16-bit mono.
        if (buffer.format().sampleType != AudioFormat::SampleType::int16 || buffer.format().channels != 1)
            return;
        samples.insert(samples.end(), buffer.int16Samples(), buffer.int16Samples() + buffer.frameLength());
    }
    std::lock_guard use(loaded->inUse());
    if (const std::optional<std::vector<float>> mean = loaded->cepstralMeanOf(samples.data(), samples.size()))
        loaded->setCepstralMean(*mean);
}

std::unique_ptr<RecognizerSession> PocketsphinxBackend::makeSession(const QString& language) {
    return std::make_unique<PocketsphinxSession>(decoderLoad(language));
}

} // namespace murmurly
