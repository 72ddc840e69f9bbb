#pragma once

#include <QByteArray>
#include <QStringView>

namespace murmurly::JsonWriter {

// Appends `text` as a JSON string (quoted, escaped, UTF-8), converting from UTF-16 in one pass.
// A lone surrogate becomes U+FFFD, so the output is always valid UTF-8.
void appendString(QByteArray& out, QStringView text);

// Appends the shortest decimal form that reads back as exactly the same double.
void appendNumber(QByteArray& out, double value);

} // namespace murmurly::JsonWriter
