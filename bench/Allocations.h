// Heap allocations made by this process so far (operator new is counted by AllocationCounter.cpp).
#pragma once

#include <cstdint>

namespace bench {
uint64_t allocations();
}  // namespace bench
