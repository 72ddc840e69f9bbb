#pragma once

#include "speech/AudioBuffer.h"
#include "speech/AudioFormat.h"
#include "speech/RecognizerSession.h"

#include <QCoro/QCoroTask>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>
#include <vector>

namespace murmurly {

// Fetches and installs the model of one language.
class ModelInstallRequest {
public:
    virtual ~ModelInstallRequest() = default;
    virtual QCoro::Task<> downloadAndInstall() = 0;
};

// The on-device speech recognizer of the platform. Languages are BCP-47 identifiers ("en-US").
class SpeechBackend {
public:
    virtual ~SpeechBackend() = default;

    // Languages whose model is on this machine and ready.
    virtual QStringList installedLanguages() = 0;
    // Languages the recognizer can handle, installed or not.
    virtual QStringList supportedLanguages() = 0;

    // A request that installs the model of `language`; nothing when it is already present.
    virtual std::unique_ptr<ModelInstallRequest> installRequest(const QString& language) = 0;

    // The audio format the recognizer of `language` works on best; nothing when it has none.
    virtual std::optional<AudioFormat> bestAudioFormat(const QString& language) = 0;

    // A fresh recognizer for one dictation in `language`; it does nothing before start().
    virtual std::unique_ptr<RecognizerSession> makeSession(const QString& language) = 0;

    // Gets the recognizer of `language` ready ahead of its first dictation, without waiting for
    // it; back ends with nothing to load do nothing.
    virtual void prepare(const QString& language) { Q_UNUSED(language); }

    // Lets the recognizer of `language` fit what it learns about the speaker and the microphone
    // to a whole recording (in bestAudioFormat()) before that recording is recognized: a file is
    // all there from the start, while a dictation is only heard as it goes. Back ends that learn
    // nothing of the kind do nothing.
    virtual void adaptToRecording(const QString& language, const std::vector<AudioBuffer>& audio) {
        Q_UNUSED(language);
        Q_UNUSED(audio);
    }
};

} // namespace murmurly
