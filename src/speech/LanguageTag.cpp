#include "speech/LanguageTag.h"

#include <QStringList>

namespace murmurly {

QString bcp47Identifier(const QString& identifier) {
    QString normalized = identifier.trimmed();
    normalized.replace(QLatin1Char('_'), QLatin1Char('-'));
    QStringList subtags = normalized.split(QLatin1Char('-'), Qt::SkipEmptyParts);
    for (int i = 0; i < subtags.size(); ++i) {
        QString& tag = subtags[i];
        if (i == 0) {
            tag = tag.toLower();
        } else if (tag.size() == 4 && tag.front().isLetter()) {
            tag = tag.left(1).toUpper() + tag.mid(1).toLower();
        } else if (tag.size() == 2 || (tag.size() == 3 && tag.front().isDigit())) {
            tag = tag.toUpper();
        } else {
            tag = tag.toLower();
        }
    }
    return subtags.join(QLatin1Char('-'));
}

} // namespace murmurly
