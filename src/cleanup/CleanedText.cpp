#include "cleanup/CleanedText.h"

#include "core/JsonFields.h"

namespace murmurly {

namespace {

// A string holding an unpaired surrogate has no UTF-8 form; converting it would substitute a
// replacement character, which is a lossy conversion.
bool hasUtf8Form(const QString& text) {
    const qsizetype size = text.size();
    for (qsizetype i = 0; i < size; ++i) {
        const QChar c = text.at(i);
        if (c.isHighSurrogate()) {
            if (i + 1 >= size || !text.at(i + 1).isLowSurrogate()) return false;
            ++i;
        } else if (c.isLowSurrogate()) {
            return false;
        }
    }
    return true;
}

} // namespace

std::optional<QString> extractCleanedText(const QString& reply) {
    if (!hasUtf8Form(reply)) return std::nullopt;
    const nlohmann::json document = JsonFields::parse(reply.toUtf8());
    if (!document.is_object()) return std::nullopt; // also a parse failure (discarded value)
    const std::optional<QString> cleaned = JsonFields::string(document, "cleaned_text");
    if (!cleaned) return std::nullopt;
    // QString::trimmed drops every character QChar::isSpace() accepts: tab, LF, VT, FF, CR,
    // space, U+0085, and the Unicode space, line and paragraph separators (Zs, Zl, Zp).
    QString trimmed = cleaned->trimmed();
    if (trimmed.isEmpty()) return std::nullopt;
    return trimmed;
}

} // namespace murmurly
