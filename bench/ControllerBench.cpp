// The controller's own share of the time between the trigger's release and the paste: stopping
// the recording, finishing the engine, applying the vocabulary, and handing the text to the
// inserter. Recognition and cleanup are left out: the recognizer is a fake whose last words are
// ready at once, and cleanup is off. A 200-rule vocabulary is on, as a user would have it.
#include "ControllerHarness.h"
#include "Figures.h"

#include "output/ReplacementStore.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QLoggingCategory>

#include <benchmark/benchmark.h>

#include <chrono>

using namespace murmurly;
using namespace std::chrono_literals;

namespace {

void BM_ControllerOverhead(benchmark::State& state) {
    QLoggingCategory::setFilterRules(QStringLiteral("com.qv.murmurly.app=false"));
    testing::ControllerHarness h;
    h.speech.script.finalResults = {{QStringLiteral("please send the quarterly report to the team by friday"), true}};
    QList<ReplacementRule> rules;
    for (int i = 0; i < 200; ++i) {
        ReplacementRule rule = ReplacementRule::create();
        rule.from = QStringLiteral("term%1").arg(i);
        rule.to = QStringLiteral("Term %1").arg(i);
        rules.append(rule);
    }
    AppController& controller = h.controller();
    controller.replacements().setRules(rules);
    controller.replacements().setEnabled(true);

    bool pasted = false;
    QElapsedTimer timer;
    qint64 pastedAfterNs = 0;
    h.pasteKeys.onPaste = [&] {
        pastedAfterNs = timer.nsecsElapsed();
        pasted = true;
    };

    for (auto _ : state) {
        controller.pttPressed();
        h.advance(200ms);
        pasted = false;
        timer.start();
        controller.pttReleased();
        // Queued work (the results reader) runs on the event loop, as it would in the program.
        while (!pasted && timer.elapsed() < 5000)
            QCoreApplication::processEvents();
        if (!pasted) {
            state.SkipWithError("the text never reached the inserter");
            break;
        }
        state.SetIterationTime(static_cast<double>(pastedAfterNs) * 1e-9);
        h.advance(300ms); // the clipboard restore and the history entry
    }
    QLoggingCategory::setFilterRules(QString());
}

const bool figures = [] {
    bench::addFigure("BM_ControllerOverhead", {"<= 1 ms", 1e-3, std::nullopt});
    return true;
}();

} // namespace

BENCHMARK(BM_ControllerOverhead)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(200);
