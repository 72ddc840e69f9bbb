#include "core/Uuid.h"

#include <cctype>

namespace murmurly::Uuid {

QUuid create() {
    return QUuid::createUuid();
}

QString text(const QUuid& uuid) {
    return uuid.toString(QUuid::WithoutBraces).toUpper();
}

std::optional<QUuid> parse(const QString& text) {
    if (text.size() != 36) return std::nullopt;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (c != QLatin1Char('-')) return std::nullopt;
        } else if (!isxdigit(c.unicode() < 128 ? c.toLatin1() : 'x')) {
            return std::nullopt;
        }
    }
    const QUuid uuid = QUuid::fromString(text);
    if (uuid.isNull() && text != QLatin1String("00000000-0000-0000-0000-000000000000")) return std::nullopt;
    return uuid;
}

} // namespace murmurly::Uuid
