#pragma once

#include "platform/linux/CepstralMeanStore.h"
#include "platform/linux/PocketsphinxDecoder.h"
#include "platform/linux/PocketsphinxDecoderLoad.h"
#include "platform/linux/PocketsphinxSession.h"
#include "speech/SpeechBackend.h"

#include <QMap>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace murmurly {

// On-device recognition with pocketsphinx. A language is a model folder: the distribution's
// under /usr/share/pocketsphinx/model/<folder> (Debian's "en-us" reads as en-US) and the user's
// under $XDG_DATA_HOME/murmurly/models/<language>/, each with an acoustic model folder, a
// dictionary and a language model. The user's folder wins when both have a language. Nothing is
// downloaded: supported and installed languages are the same set.
class PocketsphinxBackend final : public SpeechBackend {
public:
    // Makes a decoder from a model's files; the default loads it with pocketsphinx.
    using DecoderLoader = std::function<std::shared_ptr<PocketsphinxDecoder>(const PocketsphinxModel&)>;

    // With a `meanStore`, each language's decoder starts from the cepstral mean stored by an
    // earlier run, and every dictation in which words were heard stores what it learned.
    explicit PocketsphinxBackend(QStringList modelRoots = defaultModelRoots(), DecoderLoader load = {},
                                 std::optional<CepstralMeanStore> meanStore = std::nullopt);
    ~PocketsphinxBackend() override;

    // The user's folder first, then the distribution's.
    static QStringList defaultModelRoots();

    QStringList installedLanguages() override;
    QStringList supportedLanguages() override;
    std::unique_ptr<ModelInstallRequest> installRequest(const QString& language) override;
    std::optional<AudioFormat> bestAudioFormat(const QString& language) override;
    std::unique_ptr<RecognizerSession> makeSession(const QString& language) override;
    void prepare(const QString& language) override;
    // Sets the decoder's cepstral mean to that of the recording's speech. Waits for the model.
    void adaptToRecording(const QString& language, const std::vector<AudioBuffer>& audio) override;

    // The model files of `language`, if it has a model.
    std::optional<PocketsphinxModel> model(const QString& language);
    // Loads the decoder of `language` now unless it is loaded or loading; waits for it. Throws
    // when the language has no model or the model cannot be loaded.
    std::shared_ptr<PocketsphinxDecoder> decoder(const QString& language);

private:
    QMap<QString, PocketsphinxModel> scan() const;
    std::shared_ptr<PocketsphinxDecoderLoad> decoderLoad(const QString& language);

    const QStringList m_roots;
    const DecoderLoader m_load;
    const std::optional<CepstralMeanStore> m_meanStore;
    std::mutex m_mutex;
    QMap<QString, std::shared_ptr<PocketsphinxDecoderLoad>> m_decoders;
};

} // namespace murmurly
