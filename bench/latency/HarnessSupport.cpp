#include "HarnessSupport.h"

#include <QProcess>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace murmurly::bench {

long long monotonicMicroseconds() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

double nearestRank(std::vector<double> samples, double fraction) {
    if (samples.empty()) return 0;
    std::sort(samples.begin(), samples.end());
    const auto rank = std::size_t(std::max(1.0, std::ceil(fraction * double(samples.size()))));
    return samples[std::min(rank, samples.size()) - 1];
}

void fail(const char* what, const QString& detail) {
    std::fprintf(stderr, "latency harness: %s\n%s\n", what, qPrintable(detail));
    std::exit(1);
}

// About -65 dBFS: pacat's volume is cubic, (6554 / 65536)³ = 1/1000 of full scale.
std::unique_ptr<QProcess> startRoomNoise() {
    auto process = std::make_unique<QProcess>();
    process->start(QStringLiteral("pacat"),
                   {QStringLiteral("--playback"), QStringLiteral("--raw"), QStringLiteral("--format=s16le"),
                    QStringLiteral("--rate=16000"), QStringLiteral("--channels=1"),
                    QStringLiteral("--latency-msec=20"), QStringLiteral("--volume=6554"),
                    QStringLiteral("/dev/urandom")});
    if (!process->waitForStarted(5000)) fail("could not start pacat for the room noise");
    return process;
}

void pactl(const QStringList& arguments) {
    QProcess process;
    process.start(QStringLiteral("pactl"), arguments);
    if (!process.waitForFinished(10000) || process.exitCode() != 0)
        fail("pactl failed:", arguments.join(QLatin1Char(' ')) + QLatin1Char('\n') +
                                  QString::fromUtf8(process.readAllStandardError()));
}

} // namespace murmurly::bench
