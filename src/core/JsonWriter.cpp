#include "core/JsonWriter.h"

#include <charconv>
#include <cmath>

namespace murmurly::JsonWriter {

namespace {

char* writeUtf8(char* w, char32_t cp) {
    if (cp < 0x800) {
        *w++ = static_cast<char>(0xC0 | (cp >> 6));
    } else if (cp < 0x10000) {
        *w++ = static_cast<char>(0xE0 | (cp >> 12));
        *w++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    } else {
        *w++ = static_cast<char>(0xF0 | (cp >> 18));
        *w++ = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        *w++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    }
    *w++ = static_cast<char>(0x80 | (cp & 0x3F));
    return w;
}

} // namespace

void appendString(QByteArray& out, QStringView text) {
    static const char hex[] = "0123456789abcdef";
    // Worst case six bytes per UTF-16 unit (\u001f), plus the quotes; trimmed afterwards.
    const qsizetype start = out.size();
    out.resize(start + text.size() * 6 + 2);
    char* w = out.data() + start;
    *w++ = '"';
    const char16_t* p = text.utf16();
    const char16_t* end = p + text.size();
    while (p < end) {
        const char16_t c = *p++;
        if (c >= 0x20 && c < 0x80) {
            if (c == u'"' || c == u'\\') *w++ = '\\';
            *w++ = static_cast<char>(c);
        } else if (c < 0x20) {
            *w++ = '\\';
            switch (c) {
            case u'\n':
                *w++ = 'n';
                break;
            case u'\r':
                *w++ = 'r';
                break;
            case u'\t':
                *w++ = 't';
                break;
            default:
                *w++ = 'u';
                *w++ = '0';
                *w++ = '0';
                *w++ = hex[c >> 4];
                *w++ = hex[c & 0xF];
            }
        } else if (c >= 0xD800 && c <= 0xDBFF && p < end && *p >= 0xDC00 && *p <= 0xDFFF) {
            w = writeUtf8(w, 0x10000 + ((char32_t(c) - 0xD800) << 10) + (char32_t(*p++) - 0xDC00));
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            w = writeUtf8(w, 0xFFFD);
        } else {
            w = writeUtf8(w, c);
        }
    }
    *w++ = '"';
    out.resize(w - out.data());
}

void appendNumber(QByteArray& out, double value) {
    if (!std::isfinite(value)) {
        out.append("null"); // JSON has no infinities; never produced by the program's own clocks
        return;
    }
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, static_cast<qsizetype>(result.ptr - buffer));
}

} // namespace murmurly::JsonWriter
