#include "TemporaryHome.h"

#include <QDir>

namespace murmurly::testing {

TemporaryHome::TemporaryHome() {
    set("HOME", m_dir.path());
    set("XDG_CONFIG_HOME", configHome());
    set("XDG_DATA_HOME", dataHome());
    set("XDG_CACHE_HOME", m_dir.path() + QStringLiteral("/cache"));
    set("XDG_STATE_HOME", m_dir.path() + QStringLiteral("/state"));
}

TemporaryHome::~TemporaryHome() {
    for (const auto& [name, value] : m_saved)
        qputenv(name.constData(), value);
    for (const QByteArray& name : m_unset)
        qunsetenv(name.constData());
}

void TemporaryHome::set(const char* name, const QString& value) {
    if (qEnvironmentVariableIsSet(name))
        m_saved.append({QByteArray(name), qgetenv(name)});
    else
        m_unset.append(QByteArray(name));
    qputenv(name, value.toLocal8Bit());
}

} // namespace murmurly::testing
