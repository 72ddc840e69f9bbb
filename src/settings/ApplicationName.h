#pragma once

#include <QString>

namespace murmurly {

// The name a person knows an application by, from the identifier a dictation recorded: the id of
// its desktop entry. The entry is looked up in the XDG applications folders as they are now, so an
// application that has since been removed shows its identifier.
class ApplicationName {
public:
    // The entry's Name, or `identifier` itself when no installed entry has that id (or the entry
    // is hidden, or names nothing).
    static QString forIdentifier(const QString& identifier);

    // The path of the desktop entry with this id, or empty. The id of
    // applications/vendor/app.desktop is "vendor-app".
    static QString desktopEntryPath(const QString& identifier);
};

} // namespace murmurly
