// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <benchmark/benchmark.h>

#include "counted_memory.h"

namespace ardv::bench {

/** Runs `once` as often as the benchmark asks, and counts its allocations. It returns false if it failed. */
template <typename Once>
void Run(benchmark::State& state, Once once) {
    const auto before = AllocationCount();
    for (auto _ : state) {
        if (!once()) {
            state.SkipWithError("failed");
            return;
        }
    }
    state.counters["allocs"] =
        benchmark::Counter(static_cast<double>(AllocationCount() - before), benchmark::Counter::kAvgIterations);
}

}  // namespace ardv::bench
