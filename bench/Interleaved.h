// Measures a service path against its floor (the cheapest way to do the same work) in the same
// run: the two alternate in chunks, and the medians of their per-call times and their ratio are
// reported as counters ("ns", "floor_ns", "ratio"). Heap allocations per call are counted too.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <vector>

#include "Allocations.h"

namespace bench {

inline double median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

inline void nothing() {}

// between() runs after each pair of chunks, outside the timing (a pace the path needs).
template <typename Path, typename Floor, typename Between = void (*)()>
void interleaved(benchmark::State& state, Path path, Floor floor, int chunk = 256,
                 Between between = nothing) {
    using Clock = std::chrono::steady_clock;
    std::vector<double> pathNs;
    std::vector<double> floorNs;
    uint64_t pathAllocations = 0;
    uint64_t floorAllocations = 0;
    for (auto _ : state) {
        const uint64_t a0 = allocations();
        const auto t0 = Clock::now();
        for (int i = 0; i < chunk; ++i) floor();
        const auto t1 = Clock::now();
        const uint64_t a1 = allocations();
        for (int i = 0; i < chunk; ++i) path();
        const auto t2 = Clock::now();
        floorAllocations += a1 - a0;
        pathAllocations += allocations() - a1;
        floorNs.push_back(std::chrono::duration<double, std::nano>(t1 - t0).count() / chunk);
        pathNs.push_back(std::chrono::duration<double, std::nano>(t2 - t1).count() / chunk);
        between();
    }
    const double calls = static_cast<double>(state.iterations()) * chunk;
    state.counters["ns"] = median(pathNs);
    state.counters["floor_ns"] = median(floorNs);
    state.counters["ratio"] = median(pathNs) / median(floorNs);
    state.counters["allocs"] = static_cast<double>(pathAllocations) / calls;
    state.counters["floor_allocs"] = static_cast<double>(floorAllocations) / calls;
}

}  // namespace bench
