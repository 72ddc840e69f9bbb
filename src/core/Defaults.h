#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QVariant>

#include <optional>

namespace murmurly {

// Typed user preferences by key. Every write is stored at once; nothing is flushed at exit.
// Implementations only store and fetch raw values; the typed readers decide what counts as a
// value of their type, in one place for every implementation.
class Defaults {
public:
    virtual ~Defaults() = default;

    // The stored value, or an invalid QVariant when the key is absent.
    virtual QVariant value(const QString& key) const = 0;
    virtual void setValue(const QString& key, const QVariant& value) = 0;
    virtual void remove(const QString& key) = 0;

    bool contains(const QString& key) const { return value(key).isValid(); }

    // A fallback for `key` while nothing is stored under it. Registered values are never written;
    // they are read by the typed readers below and live as long as this object.
    void registerDefault(const QString& key, const QVariant& value) { m_registered.insert(key, value); }

    // Absent when the key is missing or holds something that is not of the asked type. Text
    // stores (INI) keep scalars as text, so "true"/"false" read as booleans and a whole decimal
    // number reads as an integer.
    std::optional<bool> boolValue(const QString& key) const;
    std::optional<qint64> intValue(const QString& key) const;
    std::optional<QString> stringValue(const QString& key) const;
    std::optional<QByteArray> bytesValue(const QString& key) const;

    void setBool(const QString& key, bool value) { setValue(key, QVariant(value)); }
    void setInt(const QString& key, qint64 value) { setValue(key, QVariant(value)); }
    void setString(const QString& key, const QString& value) { setValue(key, QVariant(value)); }
    void setBytes(const QString& key, const QByteArray& value) { setValue(key, QVariant(value)); }

private:
    // The stored value, else the registered one.
    QVariant effectiveValue(const QString& key) const;

    QHash<QString, QVariant> m_registered;
};

} // namespace murmurly
