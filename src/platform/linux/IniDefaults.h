#pragma once

#include "core/Defaults.h"

#include <QSettings>

namespace murmurly {

// Preferences in an INI file, $XDG_CONFIG_HOME/murmurly/settings.ini by default. Every write is
// synced to disk at once, so nothing needs flushing at exit.
class IniDefaults final : public Defaults {
public:
    explicit IniDefaults(const QString& filePath = defaultFilePath());

    static QString defaultFilePath();

    QVariant value(const QString& key) const override;
    void setValue(const QString& key, const QVariant& value) override;
    void remove(const QString& key) override;

private:
    mutable QSettings m_settings;
};

} // namespace murmurly
