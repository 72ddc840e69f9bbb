#include "settings/ApplicationName.h"

#include <QFile>
#include <QStandardPaths>
#include <QTextStream>

namespace murmurly {

namespace {

// The id's file below an applications folder: "a-b-c" may be a-b-c.desktop, a/b-c.desktop or
// a/b/c.desktop, tried in that order.
QStringList candidateNames(const QString& identifier) {
    QStringList names{identifier + QStringLiteral(".desktop")};
    QString name = identifier;
    for (qsizetype at = name.indexOf(QLatin1Char('-')); at >= 0;
         at = name.indexOf(QLatin1Char('-'), at + 1)) {
        name[at] = QLatin1Char('/');
        names << name + QStringLiteral(".desktop");
    }
    return names;
}

} // namespace

QString ApplicationName::desktopEntryPath(const QString& identifier) {
    if (identifier.isEmpty() || identifier.contains(QLatin1Char('/'))) return {};
    for (const QString& folder : QStandardPaths::standardLocations(QStandardPaths::ApplicationsLocation))
        for (const QString& name : candidateNames(identifier)) {
            const QString path = folder + QLatin1Char('/') + name;
            if (QFile::exists(path)) return path;
        }
    return {};
}

QString ApplicationName::forIdentifier(const QString& identifier) {
    const QString path = desktopEntryPath(identifier);
    QFile file(path);
    if (path.isEmpty() || !file.open(QIODevice::ReadOnly | QIODevice::Text)) return identifier;
    QTextStream lines(&file);
    bool inEntry = false;
    QString name;
    while (!lines.atEnd()) {
        const QString line = lines.readLine().trimmed();
        if (line.startsWith(QLatin1Char('['))) {
            inEntry = line == QLatin1String("[Desktop Entry]");
            continue;
        }
        if (!inEntry) continue;
        // A hidden entry is one the user deleted.
        if (line == QLatin1String("Hidden=true")) return identifier;
        if (name.isEmpty() && line.startsWith(QLatin1String("Name="))) name = line.mid(5).trimmed();
    }
    return name.isEmpty() ? identifier : name;
}

} // namespace murmurly
