#pragma once

#include "cleanup/CleanupProvider.h"
#include "cleanup/TokenUsage.h"
#include "records/ProviderPrice.h"
#include "records/ProviderUsage.h"

#include <QByteArray>
#include <QMap>
#include <QObject>
#include <QString>

#include <optional>

namespace murmurly {

class Defaults;

// Counts cleanups and tokens per provider for this run ("session") and since the last reset
// ("all time"), and estimates their cost from a fixed price table.
class UsageTracker : public QObject {
    Q_OBJECT
    Q_PROPERTY(QMap<QString, murmurly::ProviderUsage> allTime READ allTime NOTIFY allTimeChanged)
    Q_PROPERTY(QMap<QString, murmurly::ProviderUsage> session READ session NOTIFY sessionChanged)

public:
    using UsageMap = QMap<QString, ProviderUsage>;

    static inline const QString allTimeKey = QStringLiteral("usageAllTime");

    explicit UsageTracker(Defaults& defaults, QObject* parent = nullptr);

    const UsageMap& allTime() const { return m_allTime; }
    const UsageMap& session() const { return m_session; }
    const QMap<QString, ProviderPrice>& prices() const { return m_prices; }

    // One cleanup; tokens are added only when the provider reported them.
    void record(CleanupProvider provider, const std::optional<TokenUsage>& usage);

    double cost(const ProviderUsage& usage, const QString& providerID) const;
    double sessionCost() const;
    double allTimeCost() const;

    // Empties both tables and stores {} as the all-time value.
    void reset();

    static QByteArray encode(const UsageMap& usage);
    static std::optional<UsageMap> decode(const QByteArray& json);

signals:
    void allTimeChanged();
    void sessionChanged();

private:
    void persistAllTime();
    double totalCost(const UsageMap& usage) const;

    Defaults& m_defaults;
    UsageMap m_allTime;
    UsageMap m_session;
    const QMap<QString, ProviderPrice> m_prices;
};

} // namespace murmurly
