#pragma once

#include <QString>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace murmurly::bench {

// The moments the program logged with its latency lines ("… latency <moment> <microseconds>") in a
// stretch of its log, the first reading of each.
class LatencyMarks {
public:
    static LatencyMarks parse(const QString& log);

    // The monotonic clock's reading at the moment, in microseconds, or -1 when it was not logged.
    long long at(const std::string& moment) const;
    bool has(const std::string& moment) const { return at(moment) >= 0; }
    // Every moment with its reading, in the order of the readings.
    std::vector<std::pair<std::string, long long>> inOrder() const;

private:
    std::map<std::string, long long> m_moments;
};

} // namespace murmurly::bench
