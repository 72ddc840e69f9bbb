#include "speech/AudioFormat.h"

namespace murmurly {

QString AudioFormat::toString() const {
    return QStringLiteral("%1 Hz, %2 ch, %3")
        .arg(sampleRate)
        .arg(channels)
        .arg(sampleType == SampleType::float32 ? QStringLiteral("float32") : QStringLiteral("int16"));
}

} // namespace murmurly
