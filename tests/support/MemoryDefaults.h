#pragma once

#include "core/Defaults.h"

#include <QHash>

namespace murmurly::testing {

// Preferences in memory, keeping each value's type as it was written.
class MemoryDefaults final : public Defaults {
public:
    QVariant value(const QString& key) const override { return m_values.value(key); }
    void setValue(const QString& key, const QVariant& value) override {
        m_values.insert(key, value);
        ++m_writes;
    }
    void remove(const QString& key) override { m_values.remove(key); }

    int writeCount() const { return m_writes; }

private:
    QHash<QString, QVariant> m_values;
    int m_writes = 0;
};

} // namespace murmurly::testing
