#pragma once

#include "core/LoginItem.h"

#include <QString>

namespace murmurly {

// Launch at login through the freedesktop.org autostart mechanism: a desktop entry in
// $XDG_CONFIG_HOME/autostart that session managers (GNOME, KDE, Xfce, …) start at login. The file
// is the whole registration, so its presence and content are the status.
class XdgAutostartLoginItem final : public LoginItem {
public:
    // `executablePath` is what the desktop starts; a relative path is made absolute.
    explicit XdgAutostartLoginItem(QString executablePath);

    // Passed on the Exec line, so that a start by the login is told from a start by the user.
    static inline const QString autostartOption = QStringLiteral("--autostart");

    // $XDG_CONFIG_HOME/autostart/murmurly.desktop, with ~/.config when XDG_CONFIG_HOME is unset,
    // empty or relative (the base directory rules ignore relative paths).
    static QString autostartFilePath();

    // The Exec value for `executablePath` as written in the file: quoted when the path holds a
    // character the desktop-entry format reserves, with field-code and string escapes applied.
    static QString execValue(const QString& executablePath);

    // An enabled entry written by an earlier version, without the option above, is written again
    // with it (so that the login stops opening the settings window on a desktop without a tray).
    // True when it was renewed.
    bool renewOutdatedEntry();

    bool isEnabled() const override;
    std::optional<QString> registerItem() override;
    std::optional<QString> unregisterItem() override;

private:
    struct Entry {
        bool found = false; // a [Desktop Entry] group
        bool hidden = false;
        bool switchedOff = false;
        QString exec; // as written

        bool isEnabled() const { return found && !hidden && !switchedOff; }
    };
    static Entry readEntry();

    QString m_executablePath;
};

} // namespace murmurly
