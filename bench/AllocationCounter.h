#pragma once

#include <cstddef>

namespace murmurly::bench {

// Heap allocations made by the whole program so far (operator new is replaced in the benchmark
// executable to count them).
std::size_t allocationCount();

} // namespace murmurly::bench
