// A real vocabulary reaches tens of thousands of words: 20,000 enabled whole-word,
// case-insensitive rules over one 600-character dictation, against running every rule through
// its own regular expression; and the same vocabulary, with one long entry, over a text of more
// than 100,000 characters (a long recording given to `murmurly transcribe`).
#include "AllocationCounter.h"
#include "Figures.h"
#include "output/TextReplacer.h"

#include <benchmark/benchmark.h>

#include <random>
#include <set>

using namespace murmurly;

namespace {

QString pseudoWord(std::mt19937& rng) {
    static const char* syllables[] = {"ka",  "lo",  "mi",  "ner", "sto", "qua", "vex", "dri", "pel", "zon",
                                      "thu", "bra", "cli", "mor", "sen", "tak", "ul",  "yp",  "wen", "gor"};
    std::uniform_int_distribution<int> count(2, 4);
    std::uniform_int_distribution<int> pick(0, 19);
    QString word;
    for (int n = count(rng); n > 0; --n)
        word += QString::fromLatin1(syllables[pick(rng)]);
    return word;
}

struct Workload {
    QList<ReplacementRule> rules;
    QString transcript;
};

const Workload& workload() {
    static const Workload w = [] {
        std::mt19937 rng(42);
        std::set<QString> seen;
        Workload result;
        while (result.rules.size() < 20000) {
            QString from = pseudoWord(rng);
            if (result.rules.size() % 10 == 0) from += QLatin1Char(' ') + pseudoWord(rng); // some phrases
            if (!seen.insert(from).second) continue;
            ReplacementRule rule = ReplacementRule::create();
            rule.from = from;
            rule.to = from.toUpper();
            result.rules.append(rule);
        }
        // Ordinary speech with five vocabulary entries in it, one of them capitalised.
        QString text = QStringLiteral(
            "So the plan for next week is to meet with the design team on Tuesday morning and go over the "
            "new onboarding flow, then ");
        for (int i : {17, 4242, 9999, 15000, 19990})
            text += result.rules.at(i).from + QStringLiteral(" and ");
        text.replace(result.rules.at(4242).from, result.rules.at(4242).from.toUpper());
        text += QStringLiteral(
            "after lunch we review the quarterly numbers with finance, which should not take more than an "
            "hour "
            "if everyone has read the report beforehand. Please also remember to book the large meeting room "
            "for Thursday, send the agenda to everybody by Wednesday evening, and let me know whether the "
            "client call can move to Friday afternoon, because the morning slot clashes with the product "
            "review and I would rather not split the team across two rooms.");
        result.transcript = text.left(600);
        return result;
    }();
    return w;
}

// Times apply() on the workload, once its result `replaced` has been checked against running
// every rule in turn; false when it differs.
bool measure(benchmark::State& state, const Workload& w, const QString& replaced, const QString& expected) {
    if (replaced != expected || expected == w.transcript) {
        state.SkipWithError("result differs from running every rule in turn");
        return false;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(TextReplacer::apply(w.rules, w.transcript));
    state.counters["rules"] = static_cast<double>(w.rules.size());
    state.counters["chars"] = static_cast<double>(w.transcript.size());
    return true;
}

void BM_ReplaceVocabulary20k(benchmark::State& state) {
    const Workload& w = workload();
    const QString expected = TextReplacer::applyEveryRule(w.rules, w.transcript);
    if (!measure(state, w, TextReplacer::apply(w.rules, w.transcript), expected)) return;
    if (w.transcript.size() != 600) state.SkipWithError("the transcript must be 600 characters");
}

// The vocabulary above plus one entry of 48 characters, over the dictation's sentences repeated
// past 100,000 characters with vocabulary words strewn through them.
const Workload& longWorkload() {
    static const Workload w = [] {
        Workload result = workload();
        ReplacementRule longRule = ReplacementRule::create();
        longRule.from = QStringLiteral("the quarterly numbers with finance and procurement");
        longRule.to = QStringLiteral("the Q3 figures");
        result.rules.insert(result.rules.size() / 2, longRule);
        result.rules.removeLast();

        std::mt19937 rng(7);
        std::uniform_int_distribution<qsizetype> pick(0, result.rules.size() - 1);
        const QStringList sentences = workload().transcript.split(QStringLiteral(". "));
        QString text;
        for (int i = 0; text.size() < 100000; ++i) {
            text += sentences.at(i % sentences.size()) + QStringLiteral(". ");
            if (i % 7 == 0) text += result.rules.at(pick(rng)).from + QStringLiteral(" said so. ");
            if (i % 50 == 0) text += longRule.from.toUpper() + QStringLiteral(" were late. ");
        }
        result.transcript = text;
        return result;
    }();
    return w;
}

void BM_ReplaceVocabulary20kLongText(benchmark::State& state) {
    const Workload& w = longWorkload();
    static const QString expected = TextReplacer::applyEveryRule(w.rules, w.transcript);
    bench::resetPeakHeapBytes();
    const std::size_t before = bench::heapBytesInUse();
    const QString replaced = TextReplacer::apply(w.rules, w.transcript);
    const std::size_t peak = bench::peakHeapBytes() - before;
    if (!measure(state, w, replaced, expected)) return;
    state.counters["peak_heap_MiB"] = static_cast<double>(peak) / (1024.0 * 1024.0);
    state.counters["peak_heap_B_per_char"] =
        static_cast<double>(peak) / static_cast<double>(w.transcript.size());
    if (w.transcript.size() < 100000) state.SkipWithError("the text must be over 100,000 characters");
}

void BM_ReplaceVocabulary20kEachRuleInTurn(benchmark::State& state) {
    const Workload& w = workload();
    for (auto _ : state)
        benchmark::DoNotOptimize(TextReplacer::applyEveryRule(w.rules, w.transcript));
}

const bool figures = [] {
    bench::addFigure("BM_ReplaceVocabulary20k", {"<= 10 ms", 0.010, "BM_ReplaceVocabulary20kEachRuleInTurn"});
    bench::addFigure("BM_ReplaceVocabulary20kLongText", {"<= 100 ms", 0.100, std::nullopt});
    return true;
}();

} // namespace

BENCHMARK(BM_ReplaceVocabulary20k)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReplaceVocabulary20kLongText)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReplaceVocabulary20kEachRuleInTurn)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(3);
