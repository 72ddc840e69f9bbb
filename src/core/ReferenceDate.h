#pragma once

#include <QDateTime>

#include <chrono>

namespace murmurly::ReferenceDate {

// Stored dates are seconds since 2001-01-01 00:00:00 UTC, with a fraction.
inline constexpr double unixOffsetSeconds = 978307200.0;

double seconds(std::chrono::system_clock::time_point time);
std::chrono::system_clock::time_point timePoint(double referenceSeconds);
QDateTime dateTime(double referenceSeconds);

} // namespace murmurly::ReferenceDate
