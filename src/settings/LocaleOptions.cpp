#include "settings/LocaleOptions.h"

#include "speech/LanguageTag.h"

#include <QCollator>
#include <QLocale>
#include <QSet>

#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <algorithm>

namespace murmurly::LocaleOptions {

namespace {

QString fromIcu(const icu::UnicodeString& text) {
    return QString(reinterpret_cast<const QChar*>(text.getBuffer()), text.length());
}

} // namespace

QString localizedName(const QString& identifier) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Locale locale = icu::Locale::forLanguageTag(identifier.toStdString(), status);
    if (U_FAILURE(status) || locale.isBogus() || std::string_view(locale.getLanguage()).empty()) return {};
    // The C locale of a bare environment names languages in English.
    const QLocale user;
    const icu::Locale display = user.language() == QLocale::C
                                    ? icu::Locale::getEnglish()
                                    : icu::Locale(user.name().toStdString().c_str());
    icu::UnicodeString language;
    locale.getDisplayLanguage(display, language);
    // ICU answers with the code itself when it has no name for the language.
    if (fromIcu(language) == QString::fromLatin1(locale.getLanguage())) return {};
    icu::UnicodeString name;
    locale.getDisplayName(display, name);
    return fromIcu(name);
}

QList<LocaleOption> from(const QStringList& supportedLocales) {
    QSet<QString> seen;
    QList<LocaleOption> options;
    for (const QString& supported : supportedLocales) {
        const QString identifier = bcp47Identifier(supported);
        if (identifier.isEmpty() || seen.contains(identifier)) continue;
        seen.insert(identifier);
        QString name = localizedName(identifier);
        if (name.isEmpty()) name = identifier;
        options.append({identifier, name + QStringLiteral(" (") + identifier + QLatin1Char(')')});
    }
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(options.begin(), options.end(), [&](const LocaleOption& a, const LocaleOption& b) {
        return collator.compare(a.displayName, b.displayName) < 0;
    });
    return options;
}

} // namespace murmurly::LocaleOptions
