// Vocabulary files and stored rules: any bytes either fail to decode or give rules that survive
// a round trip; the decoded rules are then applied to a sample text, and the result must be the
// same as running every rule in turn.
#include "output/ReplacementRule.h"
#include "output/TextReplacer.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const auto rules = murmurly::ReplacementRule::decodeArray(bytes);
    if (!rules) return 0;

    nlohmann::ordered_json array = nlohmann::ordered_json::array();
    for (const auto& rule : *rules)
        array.push_back(rule.toJsonObject());
    const auto again = murmurly::ReplacementRule::decodeArray(QByteArray::fromStdString(array.dump()));
    if (!again || *again != *rules) std::abort();

    if (rules->size() <= 64) {
        const QString text =
            QString::fromUtf8("Teh API e.g. straße STRASSE a.b $1 \\n 😀 İstanbul ﬁne cat_ cat1 k\u212A");
        if (murmurly::TextReplacer::apply(*rules, text) !=
            murmurly::TextReplacer::applyEveryRule(*rules, text))
            std::abort();
    }
    return 0;
}
