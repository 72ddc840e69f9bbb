#include "ProcessUsage.h"

#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

namespace murmurly::bench {

std::optional<double> ProcessUsage::cpuSeconds(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    if (!std::getline(file, text)) return std::nullopt;
    // The command name (field 2) is in parentheses and may hold spaces: count from its end.
    const auto close = text.rfind(')');
    if (close == std::string::npos) return std::nullopt;
    std::istringstream rest(text.substr(close + 2));
    // Fields 3 to 13 come first; utime and stime are fields 14 and 15, in clock ticks.
    std::string skipped;
    for (int field = 3; field <= 13; ++field)
        rest >> skipped;
    unsigned long long user = 0;
    unsigned long long system = 0;
    if (!(rest >> user >> system)) return std::nullopt;
    return double(user + system) / double(sysconf(_SC_CLK_TCK));
}

std::optional<ProcessUsage::Resident> ProcessUsage::resident(pid_t pid) {
    const std::optional<long long> total = statusKibibytes(pid, "VmRSS:");
    const std::optional<long long> files = statusKibibytes(pid, "RssFile:");
    const std::optional<long long> shared = statusKibibytes(pid, "RssShmem:");
    if (!total || !files || !shared) return std::nullopt;
    return Resident{*total * 1024, *files * 1024, *shared * 1024};
}

std::optional<long long> ProcessUsage::statusKibibytes(pid_t pid, const char* field) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    const std::string prefix(field);
    std::string line;
    while (std::getline(file, line)) {
        if (line.rfind(prefix, 0) != 0) continue;
        std::istringstream fields(line.substr(prefix.size()));
        long long kibibytes = 0;
        if (!(fields >> kibibytes)) return std::nullopt;
        return kibibytes;
    }
    return std::nullopt;
}

} // namespace murmurly::bench
