#include "LatencyMarks.h"

#include <QRegularExpression>

#include <algorithm>

namespace murmurly::bench {

LatencyMarks LatencyMarks::parse(const QString& log) {
    // The program's log pattern may put the category or a time in front of the message.
    static const QRegularExpression line(QStringLiteral("(?:^|\\s)latency (\\S+) (\\d+)$"),
                                         QRegularExpression::MultilineOption);
    LatencyMarks marks;
    for (auto it = line.globalMatch(log); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        marks.m_moments.try_emplace(match.captured(1).toStdString(), match.captured(2).toLongLong());
    }
    return marks;
}

long long LatencyMarks::at(const std::string& moment) const {
    const auto it = m_moments.find(moment);
    return it == m_moments.end() ? -1 : it->second;
}

std::vector<std::pair<std::string, long long>> LatencyMarks::inOrder() const {
    std::vector<std::pair<std::string, long long>> out(m_moments.begin(), m_moments.end());
    std::sort(out.begin(), out.end(), [](const auto& a, const auto& b) { return a.second < b.second; });
    return out;
}

} // namespace murmurly::bench
