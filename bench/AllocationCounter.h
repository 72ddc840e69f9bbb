#pragma once

#include <cstddef>

namespace murmurly::bench {

// Heap allocations made by the whole program so far (operator new is replaced in the benchmark
// executable to count them).
std::size_t allocationCount();

// Bytes held through operator new now, and the most held at once since the last reset. Buffers
// that Qt allocates with malloc itself (QString, QByteArray) are not among them.
std::size_t heapBytesInUse();
std::size_t peakHeapBytes();
void resetPeakHeapBytes();

} // namespace murmurly::bench
