#include "speech/SpeechEngineKind.h"

namespace murmurly::SpeechEngineKinds {

QString rawValue(SpeechEngineKind kind) {
    return kind == SpeechEngineKind::server ? QStringLiteral("server") : QStringLiteral("onDevice");
}

QString title(SpeechEngineKind kind) {
    return kind == SpeechEngineKind::server ? QStringLiteral("Transcription server")
                                            : QStringLiteral("On-device");
}

SpeechEngineKind fromStored(const std::optional<QString>& stored) {
    return stored && *stored == QLatin1String("server") ? SpeechEngineKind::server
                                                        : SpeechEngineKind::onDevice;
}

} // namespace murmurly::SpeechEngineKinds
