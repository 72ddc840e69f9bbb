#include "core/Log.h"

Q_LOGGING_CATEGORY(lcApp, "com.qv.murmurly.app")

namespace murmurly::Log {

QString privateText(const QString& text) {
    if (qEnvironmentVariable("MURMURLY_LOG_PRIVATE") == QLatin1String("1")) return text;
    return QStringLiteral("<private>");
}

} // namespace murmurly::Log
