#pragma once

#include "output/ReplacementRule.h"

#include <QByteArray>
#include <QList>
#include <QObject>

#include <optional>

namespace murmurly {

class Defaults;

// The user's vocabulary: the master switch and the ordered rules, kept in preferences.
class ReplacementStore : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool enabled READ enabled WRITE setEnabled NOTIFY enabledChanged)
    Q_PROPERTY(QList<murmurly::ReplacementRule> rules READ rules WRITE setRules NOTIFY rulesChanged)

public:
    static inline const QString enabledKey = QStringLiteral("replacementsEnabled");
    static inline const QString rulesKey = QStringLiteral("replacementRules");
    static inline const QString suggestedFileName = QStringLiteral("murmurly-vocabulary.json");

    explicit ReplacementStore(Defaults& defaults, QObject* parent = nullptr);

    bool enabled() const { return m_enabled; }
    const QList<ReplacementRule>& rules() const { return m_rules; }

    // Both setters store the switch and the list at once.
    void setEnabled(bool enabled);
    void setRules(const QList<ReplacementRule>& rules);

    // The transcript rewritten by the rules, or unchanged while the switch is off.
    QString apply(const QString& text) const;

    // The vocabulary file: a pretty-printed array of every rule, keys sorted within each object.
    std::optional<QByteArray> exportJSON() const;
    // Replaces the whole list by the file's rules, or changes nothing and returns false.
    bool importJSON(const QByteArray& bytes);

signals:
    void enabledChanged(bool enabled);
    void rulesChanged();

private:
    void persist();

    Defaults& m_defaults;
    bool m_enabled = false;
    QList<ReplacementRule> m_rules;
};

} // namespace murmurly
