#include "output/ReplacementStore.h"

#include "core/Defaults.h"
#include "core/JsonFields.h"
#include "output/TextReplacer.h"

namespace murmurly {

ReplacementStore::ReplacementStore(Defaults& defaults, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults) {
    m_enabled = m_defaults.boolValue(enabledKey).value_or(false);
    if (const auto stored = m_defaults.bytesValue(rulesKey)) {
        if (auto rules = ReplacementRule::decodeArray(*stored)) m_rules = std::move(*rules);
    }
}

void ReplacementStore::setEnabled(bool enabled) {
    const bool changed = enabled != m_enabled;
    m_enabled = enabled;
    persist();
    if (changed) emit enabledChanged(m_enabled);
}

void ReplacementStore::setRules(const QList<ReplacementRule>& rules) {
    const bool changed = rules != m_rules;
    m_rules = rules;
    persist();
    if (changed) emit rulesChanged();
}

QString ReplacementStore::apply(const QString& text) const {
    if (!m_enabled) return text;
    return TextReplacer::apply(m_rules, text);
}

std::optional<QByteArray> ReplacementStore::exportJSON() const {
    // nlohmann::json keeps object members sorted by key.
    nlohmann::json array = nlohmann::json::array();
    for (const ReplacementRule& rule : m_rules)
        array.push_back(nlohmann::json(rule.toJsonObject()));
    return JsonFields::dump(array, 2);
}

bool ReplacementStore::importJSON(const QByteArray& bytes) {
    auto rules = ReplacementRule::decodeArray(bytes);
    if (!rules) return false;
    const bool changed = *rules != m_rules;
    m_rules = std::move(*rules);
    persist();
    if (changed) emit rulesChanged();
    return true;
}

void ReplacementStore::persist() {
    m_defaults.setBool(enabledKey, m_enabled);
    nlohmann::ordered_json array = nlohmann::ordered_json::array();
    for (const ReplacementRule& rule : m_rules)
        array.push_back(rule.toJsonObject());
    m_defaults.setBytes(rulesKey, JsonFields::dump(array));
}

} // namespace murmurly
