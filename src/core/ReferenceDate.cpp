#include "core/ReferenceDate.h"

#include <cmath>

namespace murmurly::ReferenceDate {

double seconds(std::chrono::system_clock::time_point time) {
    const auto sinceUnix = std::chrono::duration<double>(time.time_since_epoch()).count();
    return sinceUnix - unixOffsetSeconds;
}

std::chrono::system_clock::time_point timePoint(double referenceSeconds) {
    const auto sinceUnix = std::chrono::duration<double>(referenceSeconds + unixOffsetSeconds);
    return std::chrono::system_clock::time_point(
        std::chrono::duration_cast<std::chrono::system_clock::duration>(sinceUnix));
}

QDateTime dateTime(double referenceSeconds) {
    const auto ms = static_cast<qint64>(std::llround((referenceSeconds + unixOffsetSeconds) * 1000.0));
    return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC);
}

} // namespace murmurly::ReferenceDate
