#include "core/LatencyTrace.h"

#include "LogCapture.h"

#include <QLoggingCategory>
#include <QStringList>

#include <gtest/gtest.h>

#include <chrono>

using namespace murmurly;
using namespace murmurly::testing;

namespace {

const QString latencyCategory = QStringLiteral("com.qv.murmurly.latency");

QStringList latencyMessages(const LogCapture& capture) {
    QStringList out;
    for (const LogCapture::Line& line : capture.lines())
        if (line.category == latencyCategory) out << line.message;
    return out;
}

long long monotonicMicroseconds() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Turns the latency lines on for one test and back off afterwards.
class LatencyCategoryOn {
public:
    LatencyCategoryOn() {
        QLoggingCategory::setFilterRules(QStringLiteral("com.qv.murmurly.latency.info=true"));
    }
    ~LatencyCategoryOn() { QLoggingCategory::setFilterRules(QString()); }
};

} // namespace

TEST(LatencyTrace, AMarkLogsNothingUntilTheLatencyLinesAreTurnedOn) {
    LogCapture capture;
    LatencyTrace::mark(LatencyTrace::pasteChordPosted);
    EXPECT_EQ(latencyMessages(capture), QStringList());
}

TEST(LatencyTrace, AMarkCarriesTheMonotonicClockReadingOfItsMoment) {
    LatencyCategoryOn on;
    LogCapture capture;
    const long long before = monotonicMicroseconds();
    LatencyTrace::mark(LatencyTrace::firstAudioFrame);
    const long long after = monotonicMicroseconds();

    const QStringList messages = latencyMessages(capture);
    ASSERT_EQ(messages.size(), 1) << capture.allText().toStdString();
    const QStringList fields = messages.constFirst().split(QLatin1Char(' '));
    ASSERT_EQ(fields.size(), 3) << messages.constFirst().toStdString();
    EXPECT_EQ(fields[0], QStringLiteral("latency"));
    EXPECT_EQ(fields[1], QStringLiteral("first-audio-frame"));
    bool number = false;
    const long long at = fields[2].toLongLong(&number);
    ASSERT_TRUE(number) << fields[2].toStdString();
    EXPECT_GE(at, before);
    EXPECT_LE(at, after);
}
