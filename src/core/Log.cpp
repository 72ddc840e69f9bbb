#include "core/Log.h"

namespace murmurly {

Q_LOGGING_CATEGORY(lcApp, "com.qv.murmurly.app")

QString Log::privateText(const QString& text) {
    if (qEnvironmentVariable("MURMURLY_LOG_PRIVATE") == QLatin1String("1")) return text;
    return QStringLiteral("<private>");
}

} // namespace murmurly
