#pragma once

#include <sys/types.h>

#include <optional>

namespace murmurly::bench {

// What a running process has used so far, read from /proc.
class ProcessUsage {
public:
    // User plus system CPU time of all its threads, in seconds.
    static std::optional<double> cpuSeconds(pid_t pid);
    // Resident memory in bytes (VmRSS), and the parts of it that are pages of files (RssFile:
    // the program, its libraries, the speech model) and shared memory (RssShmem: the audio
    // server's buffers, for one).
    struct Resident {
        long long total = 0;
        long long files = 0;
        long long shared = 0;
    };
    static std::optional<Resident> resident(pid_t pid);

private:
    static std::optional<long long> statusKibibytes(pid_t pid, const char* field);
};

} // namespace murmurly::bench
