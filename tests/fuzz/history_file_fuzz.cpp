// The history file: any bytes either fail to decode or give entries that survive a round trip.
#include "records/HistoryStore.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const auto entries = murmurly::HistoryStore::decodeEntries(bytes);
    if (entries) {
        const auto again =
            murmurly::HistoryStore::decodeEntries(murmurly::HistoryStore::encodeEntries(*entries));
        if (!again || *again != *entries) std::abort();
    }
    return 0;
}
