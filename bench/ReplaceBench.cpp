// A real vocabulary reaches tens of thousands of words: 20,000 enabled whole-word,
// case-insensitive rules over one 600-character dictation, against running every rule through
// its own regular expression.
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

void BM_ReplaceVocabulary20k(benchmark::State& state) {
    const Workload& w = workload();
    const QString expected = TextReplacer::applyEveryRule(w.rules, w.transcript);
    if (TextReplacer::apply(w.rules, w.transcript) != expected || expected == w.transcript) {
        state.SkipWithError("result differs from running every rule in turn");
        return;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(TextReplacer::apply(w.rules, w.transcript));
    state.counters["rules"] = static_cast<double>(w.rules.size());
    state.counters["chars"] = static_cast<double>(w.transcript.size());
    if (w.transcript.size() != 600) state.SkipWithError("the transcript must be 600 characters");
}

void BM_ReplaceVocabulary20kEachRuleInTurn(benchmark::State& state) {
    const Workload& w = workload();
    for (auto _ : state)
        benchmark::DoNotOptimize(TextReplacer::applyEveryRule(w.rules, w.transcript));
}

const bool figures = [] {
    bench::addFigure("BM_ReplaceVocabulary20k", {"<= 10 ms", 0.010, "BM_ReplaceVocabulary20kEachRuleInTurn"});
    return true;
}();

} // namespace

BENCHMARK(BM_ReplaceVocabulary20k)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReplaceVocabulary20kEachRuleInTurn)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(3);
