// Recording one dictation into a history of 5,000 entries, the atomic file write included.
#include "Figures.h"
#include "ManualClock.h"
#include "MemoryDefaults.h"
#include "core/ReferenceDate.h"
#include "records/HistoryStore.h"

#include <QTemporaryDir>

#include <benchmark/benchmark.h>

using namespace murmurly;

namespace {

HistoryEntry sampleEntry(int n, double timestamp) {
    const QString raw =
        QStringLiteral("so the plan for next week is to meet with the design team on tuesday morning "
                       "and go over the new onboarding flow number ") +
        QString::number(n);
    return HistoryEntry{
        QUuid::createUuid(),
        timestamp,
        raw,
        QStringLiteral("So the plan for next week is to meet the design team on Tuesday morning and "
                       "go over the new onboarding flow, number ") +
            QString::number(n) + QLatin1Char('.'),
        QStringLiteral("Claude (Anthropic)"),
        QStringLiteral("org.kde.kate")};
}

void BM_HistoryRecord5000(benchmark::State& state) {
    QTemporaryDir dir;
    testing::MemoryDefaults defaults;
    testing::ManualClock clock;
    HistoryStore store(defaults, clock, dir.filePath(QStringLiteral("murmurly/history.json")));
    store.setEnabled(true);
    store.setKeepLast(5000);
    const double now = ReferenceDate::seconds(clock.now());
    QList<HistoryEntry> entries;
    for (int i = 0; i < 5000; ++i)
        entries.append(sampleEntry(i, now - i));
    store.setEntries(entries);
    store.save();

    int n = 5000;
    for (auto _ : state)
        store.record(sampleEntry(++n, now));
    state.counters["entries"] = static_cast<double>(store.entries().size());
}

const bool figures = [] {
    bench::addFigure("BM_HistoryRecord5000", {"<= 20 ms", 0.020, std::nullopt});
    return true;
}();

} // namespace

BENCHMARK(BM_HistoryRecord5000)->Unit(benchmark::kMillisecond)->UseRealTime();
