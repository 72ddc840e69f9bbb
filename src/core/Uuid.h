#pragma once

#include <QString>
#include <QUuid>

#include <optional>

namespace murmurly::Uuid {

QUuid create();

// Canonical form: 36 characters, hyphenated, upper-case hexadecimal.
QString text(const QUuid& uuid);

// Accepts exactly the hyphenated 36-character form (either letter case); nothing else.
std::optional<QUuid> parse(const QString& text);

} // namespace murmurly::Uuid
