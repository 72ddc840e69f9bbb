#include "platform/linux/IniDefaults.h"

#include <QStandardPaths>

namespace murmurly {

IniDefaults::IniDefaults(const QString& filePath)
    : m_settings(filePath, QSettings::IniFormat) {
}

QString IniDefaults::defaultFilePath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/murmurly/settings.ini");
}

QVariant IniDefaults::value(const QString& key) const {
    return m_settings.value(key);
}

void IniDefaults::setValue(const QString& key, const QVariant& value) {
    m_settings.setValue(key, value);
    m_settings.sync();
}

void IniDefaults::remove(const QString& key) {
    m_settings.remove(key);
    m_settings.sync();
}

} // namespace murmurly
