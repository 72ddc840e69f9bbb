// Runs every benchmark (five repetitions unless told otherwise) and ends with a table of the
// medians beside their goals and, where a plain-way reference exists, the speed-up over it.
#include "Figures.h"

#include "XvfbServer.h"

#include <QApplication>
#include <QLoggingCategory>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

class FigureReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            const bool single = run.run_type == Run::RT_Iteration && run.repetitions <= 1;
            if (!median && !single) continue;
            std::string name = run.run_name.function_name;
            if (!run.run_name.args.empty()) name += "/" + run.run_name.args;
            m_medians[name] = {run.run_name.function_name,
                               run.GetAdjustedRealTime() * unitSeconds(run.time_unit)};
        }
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\nFigures (median wall time)\n");
        std::printf("%-36s %14s  %-28s %s\n", "benchmark", "median", "goal", "vs reference");
        for (const auto& [name, measured] : m_medians) {
            const double seconds = measured.seconds;
            const auto* figure = murmurly::bench::figureFor(measured.function);
            std::string goal = "-";
            std::string verdict;
            if (figure && figure->goalSeconds) {
                goal = figure->description;
                verdict = seconds <= *figure->goalSeconds ? " (met)" : " (NOT met)";
            }
            std::string ratio = "-";
            if (figure && figure->reference) {
                const auto it = m_medians.find(*figure->reference);
                if (it != m_medians.end() && seconds > 0) {
                    char text[96];
                    std::snprintf(text, sizeof text, "%.1fx faster than %s", it->second.seconds / seconds,
                                  figure->reference->c_str());
                    ratio = text;
                }
            }
            char median[32];
            if (seconds < 1e-3)
                std::snprintf(median, sizeof median, "%.3f us", seconds * 1e6);
            else
                std::snprintf(median, sizeof median, "%.3f ms", seconds * 1e3);
            std::printf("%-36s %14s  %-28s %s\n", name.c_str(), median, (goal + verdict).c_str(),
                        ratio.c_str());
        }
    }

private:
    static double unitSeconds(benchmark::TimeUnit unit) {
        switch (unit) {
        case benchmark::kNanosecond:
            return 1e-9;
        case benchmark::kMicrosecond:
            return 1e-6;
        case benchmark::kMillisecond:
            return 1e-3;
        case benchmark::kSecond:
            return 1.0;
        }
        return 1.0;
    }

    struct Measured {
        std::string function;
        double seconds = 0;
    };
    std::map<std::string, Measured> m_medians; // by benchmark name with its arguments
};

} // namespace

int main(int argc, char** argv) {
    // The desktop benchmarks run against a private X server, never the user's display; the GUI
    // application object (a widgets one, for the settings window) connects to it. Without Xvfb
    // they report an error and the others still run.
    murmurly::testing::XvfbServer server;
    std::unique_ptr<QCoreApplication> app;
    if (server.isRunning()) {
        qputenv("DISPLAY", server.displayName());
        qputenv("QT_QPA_PLATFORM", "xcb");
        qunsetenv("WAYLAND_DISPLAY");
        app = std::make_unique<QApplication>(argc, argv);
    } else {
        std::fprintf(stderr, "No private X server (%s): the desktop benchmarks will fail\n",
                     qPrintable(server.error()));
        qunsetenv("DISPLAY");
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    // Figures, not logs: the recognizer's debug output would drown them.
    QLoggingCategory::setFilterRules(QStringLiteral("com.qv.murmurly.app.debug=false"));
    std::vector<char*> args(argv, argv + argc);
    std::string repetitions = "--benchmark_repetitions=5";
    std::string aggregates = "--benchmark_report_aggregates_only=true";
    bool hasRepetitions = false;
    for (int i = 1; i < argc; ++i)
        if (std::string(argv[i]).rfind("--benchmark_repetitions", 0) == 0) hasRepetitions = true;
    if (!hasRepetitions) {
        args.push_back(repetitions.data());
        args.push_back(aggregates.data());
    }
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;
    FigureReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
