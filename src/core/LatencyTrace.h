#pragma once

#include <QLoggingCategory>

namespace murmurly {

// Moments on the way from the trigger key to the pasted text, each logged with the reading of the
// monotonic clock (CLOCK_MONOTONIC, microseconds), so that a harness in another process can line
// them up with the key events it sent. Off unless QT_LOGGING_RULES turns on
// "com.qv.murmurly.latency.info"; while off, a mark costs one flag test.
Q_DECLARE_LOGGING_CATEGORY(lcLatency)

namespace LatencyTrace {

inline constexpr const char* triggerDown = "trigger-down";
inline constexpr const char* triggerUp = "trigger-up";
inline constexpr const char* firstAudioFrame = "first-audio-frame";
inline constexpr const char* pasteChordPosted = "paste-chord-posted";

// Logs "latency <moment> <microseconds>".
void mark(const char* moment);

} // namespace LatencyTrace

} // namespace murmurly
