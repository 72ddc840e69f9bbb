#pragma once

#include <QLoggingCategory>
#include <QString>

namespace murmurly {

// The program's one logging category, "com.qv.murmurly.app". Error-level messages go out as
// qCCritical, info as qCInfo, debug as qCDebug.
Q_DECLARE_LOGGING_CATEGORY(lcApp)

namespace Log {

// What a log line may show of user content (transcripts, cleaned text): "<private>" unless the
// environment variable MURMURLY_LOG_PRIVATE is "1" at the time of the call. API keys are never
// passed to the log at all, not even through this.
QString privateText(const QString& text);

} // namespace Log

} // namespace murmurly
