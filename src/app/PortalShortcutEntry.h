#pragma once

#include <QDBusArgument>
#include <QMetaType>
#include <QString>
#include <QVariantMap>

namespace murmurly {

// One element of the a(sa{sv}) lists in which the global-shortcuts portal passes shortcuts: the
// shortcut's id and its properties ("description", "preferred_trigger", "trigger_description").
// Register with qDBusRegisterMetaType for both the entry and QList of it before use.
struct PortalShortcutEntry {
    QString id;
    QVariantMap properties;
};

inline QDBusArgument& operator<<(QDBusArgument& argument, const PortalShortcutEntry& entry) {
    argument.beginStructure();
    argument << entry.id << entry.properties;
    argument.endStructure();
    return argument;
}

inline const QDBusArgument& operator>>(const QDBusArgument& argument, PortalShortcutEntry& entry) {
    argument.beginStructure();
    argument >> entry.id >> entry.properties;
    argument.endStructure();
    return argument;
}

} // namespace murmurly

Q_DECLARE_METATYPE(murmurly::PortalShortcutEntry)
