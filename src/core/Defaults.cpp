#include "core/Defaults.h"

namespace murmurly {

QVariant Defaults::effectiveValue(const QString& key) const {
    QVariant stored = value(key);
    if (stored.isValid()) return stored;
    return m_registered.value(key);
}

std::optional<bool> Defaults::boolValue(const QString& key) const {
    const QVariant v = effectiveValue(key);
    switch (v.typeId()) {
    case QMetaType::Bool:
        return v.toBool();
    case QMetaType::QString: {
        const QString text = v.toString();
        if (text == QLatin1String("true")) return true;
        if (text == QLatin1String("false")) return false;
        return std::nullopt;
    }
    default:
        return std::nullopt;
    }
}

std::optional<qint64> Defaults::intValue(const QString& key) const {
    const QVariant v = effectiveValue(key);
    switch (v.typeId()) {
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
        return v.toLongLong();
    case QMetaType::QString: {
        bool ok = false;
        const qint64 n = v.toString().toLongLong(&ok, 10);
        if (ok) return n;
        return std::nullopt;
    }
    default:
        return std::nullopt;
    }
}

std::optional<QString> Defaults::stringValue(const QString& key) const {
    const QVariant v = effectiveValue(key);
    if (v.typeId() == QMetaType::QString) return v.toString();
    return std::nullopt;
}

std::optional<QByteArray> Defaults::bytesValue(const QString& key) const {
    const QVariant v = effectiveValue(key);
    if (v.typeId() == QMetaType::QByteArray) return v.toByteArray();
    return std::nullopt;
}

} // namespace murmurly
