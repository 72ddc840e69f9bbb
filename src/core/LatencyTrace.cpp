#include "core/LatencyTrace.h"

#include <chrono>

namespace murmurly {

Q_LOGGING_CATEGORY(lcLatency, "com.qv.murmurly.latency", QtWarningMsg)

void LatencyTrace::mark(const char* moment) {
    if (!lcLatency().isInfoEnabled()) return;
    // steady_clock is CLOCK_MONOTONIC on Linux: the same clock in every process of the machine.
    const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
    qCInfo(lcLatency, "latency %s %lld", moment, static_cast<long long>(now.count()));
}

} // namespace murmurly
