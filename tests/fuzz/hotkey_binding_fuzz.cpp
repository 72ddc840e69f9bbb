// Stored trigger bindings: any bytes either fail to decode or decode to a binding that survives
// a round trip unchanged.
#include "hotkey/HotkeyBinding.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const auto binding = murmurly::HotkeyBinding::fromJson(bytes);
    if (binding) {
        const auto again = murmurly::HotkeyBinding::fromJson(binding->toJson());
        if (!again || *again != *binding) std::abort();
        (void)binding->isTypeable();
    }
    return 0;
}
