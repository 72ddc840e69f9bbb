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

    // $XDG_CONFIG_HOME/autostart/murmurly.desktop, with ~/.config when XDG_CONFIG_HOME is unset,
    // empty or relative (the base directory rules ignore relative paths).
    static QString autostartFilePath();

    // The Exec value for `executablePath` as written in the file: quoted when the path holds a
    // character the desktop-entry format reserves, with field-code and string escapes applied.
    static QString execValue(const QString& executablePath);

    bool isEnabled() const override;
    std::optional<QString> registerItem() override;
    std::optional<QString> unregisterItem() override;

private:
    QString m_executablePath;
};

} // namespace murmurly
