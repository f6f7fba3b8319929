// Counts the process's heap allocations, so a benchmark can report them per call.
#include <atomic>
#include <cstdlib>
#include <new>

#include "Allocations.h"

namespace {
std::atomic<uint64_t> gAllocations{0};
}  // namespace

uint64_t bench::allocations() {
    return gAllocations.load(std::memory_order_relaxed);
}

void* operator new(size_t size) {
    gAllocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
    throw std::bad_alloc();
}

void operator delete(void* p) noexcept {
    std::free(p);
}

void operator delete(void* p, size_t) noexcept {
    std::free(p);
}
