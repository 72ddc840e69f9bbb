#include "records/UsageTracker.h"

#include "core/Defaults.h"
#include "core/JsonFields.h"

#include <QtGlobal>

namespace murmurly {

namespace {

QMap<QString, ProviderPrice> priceTable() {
    return {
        {CleanupProviders::rawValue(CleanupProvider::onDevice), {0.0, 0.0}},
        {CleanupProviders::rawValue(CleanupProvider::anthropic), {1.0, 5.0}},
        {CleanupProviders::rawValue(CleanupProvider::openAICompatible), {0.15, 0.60}},
    };
}

// Counters never wrap: an overflow is a programming error.
std::int64_t add(std::int64_t a, std::int64_t b) {
    std::int64_t sum = 0;
    if (__builtin_add_overflow(a, b, &sum)) qFatal("usage counter overflow");
    return sum;
}

void count(ProviderUsage& record, const std::optional<TokenUsage>& usage) {
    record.dictations = add(record.dictations, 1);
    if (usage) {
        record.inputTokens = add(record.inputTokens, usage->inputTokens);
        record.outputTokens = add(record.outputTokens, usage->outputTokens);
    }
}

} // namespace

UsageTracker::UsageTracker(Defaults& defaults, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_prices(priceTable()) {
    if (const auto stored = m_defaults.bytesValue(allTimeKey)) {
        if (auto decoded = decode(*stored)) m_allTime = std::move(*decoded);
    }
}

void UsageTracker::record(CleanupProvider provider, const std::optional<TokenUsage>& usage) {
    const QString key = CleanupProviders::rawValue(provider);
    count(m_allTime[key], usage);
    count(m_session[key], usage);
    persistAllTime();
    emit allTimeChanged();
    emit sessionChanged();
}

double UsageTracker::cost(const ProviderUsage& usage, const QString& providerID) const {
    const ProviderPrice price = m_prices.value(providerID, ProviderPrice{});
    return (static_cast<double>(usage.inputTokens) / 1'000'000.0) * price.inputPer1M +
           (static_cast<double>(usage.outputTokens) / 1'000'000.0) * price.outputPer1M;
}

double UsageTracker::totalCost(const UsageMap& usage) const {
    double total = 0.0;
    for (auto it = usage.cbegin(); it != usage.cend(); ++it)
        total += cost(it.value(), it.key());
    return total;
}

double UsageTracker::sessionCost() const {
    return totalCost(m_session);
}

double UsageTracker::allTimeCost() const {
    return totalCost(m_allTime);
}

void UsageTracker::reset() {
    m_allTime.clear();
    m_session.clear();
    persistAllTime();
    emit allTimeChanged();
    emit sessionChanged();
}

void UsageTracker::persistAllTime() {
    m_defaults.setBytes(allTimeKey, encode(m_allTime));
}

QByteArray UsageTracker::encode(const UsageMap& usage) {
    nlohmann::ordered_json object = nlohmann::ordered_json::object();
    for (auto it = usage.cbegin(); it != usage.cend(); ++it)
        object[JsonFields::utf8(it.key())] = it.value().toJsonObject();
    return JsonFields::dump(object);
}

std::optional<UsageTracker::UsageMap> UsageTracker::decode(const QByteArray& json) {
    const auto object = JsonFields::parse(json);
    if (!object.is_object()) return std::nullopt;
    UsageMap usage;
    for (auto it = object.begin(); it != object.end(); ++it) {
        auto record = ProviderUsage::fromJsonObject(it.value());
        if (!record) return std::nullopt;
        usage.insert(QString::fromStdString(it.key()), *record);
    }
    return usage;
}

} // namespace murmurly
