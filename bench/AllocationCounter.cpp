#include "AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include <malloc.h>

namespace {

std::atomic<std::size_t> allocations{0};
std::atomic<std::size_t> bytesInUse{0};
std::atomic<std::size_t> peakBytes{0};

void* allocate(std::size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    void* p = std::malloc(size == 0 ? 1 : size);
    if (!p) throw std::bad_alloc();
    const std::size_t now =
        bytesInUse.fetch_add(malloc_usable_size(p), std::memory_order_relaxed) + malloc_usable_size(p);
    std::size_t peak = peakBytes.load(std::memory_order_relaxed);
    while (now > peak && !peakBytes.compare_exchange_weak(peak, now, std::memory_order_relaxed)) {
    }
    return p;
}

void release(void* p) noexcept {
    if (!p) return;
    bytesInUse.fetch_sub(malloc_usable_size(p), std::memory_order_relaxed);
    std::free(p);
}

} // namespace

std::size_t murmurly::bench::allocationCount() {
    return allocations.load(std::memory_order_relaxed);
}

std::size_t murmurly::bench::heapBytesInUse() {
    return bytesInUse.load(std::memory_order_relaxed);
}

std::size_t murmurly::bench::peakHeapBytes() {
    return peakBytes.load(std::memory_order_relaxed);
}

void murmurly::bench::resetPeakHeapBytes() {
    peakBytes.store(bytesInUse.load(std::memory_order_relaxed), std::memory_order_relaxed);
}

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void operator delete(void* p) noexcept {
    release(p);
}
void operator delete[](void* p) noexcept {
    release(p);
}
void operator delete(void* p, std::size_t) noexcept {
    release(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    release(p);
}
