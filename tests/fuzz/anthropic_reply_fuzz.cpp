// An Anthropic Messages reply body: any bytes give exactly one outcome; a cleaned result is a
// non-empty trimmed text, and a parse failure explains itself without quoting the body.
#include "cleanup/AnthropicMessages.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray body(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const murmurly::ProviderReply reply = murmurly::AnthropicMessages::parseReply(body);
    using Kind = murmurly::ProviderReply::Kind;
    if ((reply.kind == Kind::cleaned) != reply.result.has_value()) std::abort();
    if (reply.result && (reply.result->text.isEmpty() || reply.result->text != reply.result->text.trimmed()))
        std::abort();
    if (reply.kind == Kind::unparsable && reply.error.isEmpty()) std::abort();
    return 0;
}
