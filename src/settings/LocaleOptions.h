#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace murmurly {

// One entry of the dictation-language list.
struct LocaleOption {
    QString identifier;  // BCP-47
    QString displayName; // "English (United States) (en-US)"

    friend bool operator==(const LocaleOption&, const LocaleOption&) = default;
};

namespace LocaleOptions {

// The languages the recognizer supports, once each by BCP-47 identifier, named in the user's
// language (or by the identifier itself when there is no name for it) with the identifier in
// parentheses, sorted by name without regard to case.
QList<LocaleOption> from(const QStringList& supportedLocales);

// The name of a language identifier in the user's language; empty when there is none.
QString localizedName(const QString& identifier);

} // namespace LocaleOptions

} // namespace murmurly
