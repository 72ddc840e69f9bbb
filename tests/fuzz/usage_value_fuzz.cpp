// The stored all-time usage: any bytes either fail to decode or give counters that survive a
// round trip.
#include "records/UsageTracker.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const auto usage = murmurly::UsageTracker::decode(bytes);
    if (usage) {
        const auto again = murmurly::UsageTracker::decode(murmurly::UsageTracker::encode(*usage));
        if (!again || *again != *usage) std::abort();
    }
    return 0;
}
