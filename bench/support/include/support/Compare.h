// Benchmarks here are judged by a ratio: our code beside a bare limit that does the same work, timed in turn
// in one run, because absolute times do not repeat from one machine to the next.
#pragma once

#include <functional>

#include <benchmark/benchmark.h>

namespace bench {

enum class Clock {
  Wall,       // CLOCK_MONOTONIC: where two processes talk
  ThreadCpu,  // CLOCK_THREAD_CPUTIME_ID: where one thread computes
};

// One iteration runs `ours`, then `limit`, once each. Reports our median time as the benchmark's time and
// the counters limit_ns (its median), ratio (of the medians) and at_most; a ratio above `atMost` is labelled
// "OVER". Use it through registerComparison(), which asks for enough iterations for a median.
void compare(benchmark::State& state, double atMost, const std::function<void()>& ours,
             const std::function<void()>& limit, Clock clock = Clock::ThreadCpu);

// Registers `body`, which calls compare(), with `iterations` timed pairs (at least five); one pair where
// DIAG_BENCH_ONCE is set.
void registerComparison(const char* name, int iterations, void (*body)(benchmark::State&));

// Keeps the calling thread, and processes forked from it later, on one core.
void pinToCore(int core);

}  // namespace bench
