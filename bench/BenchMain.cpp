// Google Benchmark entry with a Qt application object, so that benchmarks of coroutine code have
// an event loop to run on.
#include <QCoreApplication>
#include <QLoggingCategory>

#include <benchmark/benchmark.h>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    // Figures, not logs: the recognizer's debug output would drown them.
    QLoggingCategory::setFilterRules(QStringLiteral("com.qv.murmurly.app.debug=false"));
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
