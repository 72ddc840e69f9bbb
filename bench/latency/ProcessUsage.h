#pragma once

#include <sys/types.h>

#include <optional>

namespace murmurly::bench {

// What a running process has used so far, read from /proc.
class ProcessUsage {
public:
    // User plus system CPU time of all its threads, in seconds.
    static std::optional<double> cpuSeconds(pid_t pid);
    // Resident memory (VmRSS), in bytes.
    static std::optional<long long> residentBytes(pid_t pid);
    // The part of it that is shared memory (RssShmem): the audio server's buffers, for one.
    static std::optional<long long> residentSharedBytes(pid_t pid);

private:
    static std::optional<long long> statusKibibytes(pid_t pid, const char* field);
};

} // namespace murmurly::bench
