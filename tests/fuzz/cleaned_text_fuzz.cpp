// A model's reply text: any bytes either give no cleaned text, or a non-empty trimmed text that
// comes back unchanged when written into a reply object again.
#include "cleanup/CleanedText.h"

#include <nlohmann/json.hpp>

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString reply =
        QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const std::optional<QString> cleaned = murmurly::extractCleanedText(reply);
    if (!cleaned) return 0;
    if (cleaned->isEmpty() || *cleaned != cleaned->trimmed()) std::abort();
    const nlohmann::json again = {{"cleaned_text", cleaned->toStdString()}};
    if (murmurly::extractCleanedText(QString::fromStdString(again.dump())) != cleaned) std::abort();
    return 0;
}
