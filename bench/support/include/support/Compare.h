// Benchmarks here are judged by a ratio: the time of our code to the time of reference code that does the
// same work with the least effort. Both run in turn in one process, because absolute times do not repeat from
// one machine to the next, nor from one minute to the next.
#pragma once

#include <functional>

#include <benchmark/benchmark.h>

namespace bench {

enum class Clock {
  Wall,       // CLOCK_MONOTONIC, for work of two processes
  ThreadCpu,  // CLOCK_THREAD_CPUTIME_ID, for work of the calling thread alone
};

// One iteration runs `ours` and then `reference`, once each. Reports the median time of `ours` as the
// benchmark's time, and the counters median_ns, reference_ns (the median of `reference`) and ratio (of the
// medians), which must be at most `atMost`. Use it through registerComparison(), which asks for enough
// iterations for a median.
void compare(benchmark::State& state, double atMost, const std::function<void()>& ours,
             const std::function<void()>& reference, Clock clock = Clock::ThreadCpu);

// Registers `body`, which calls compare(), with `iterations` timed pairs (at least five), or with one pair if
// DIAG_BENCH_ONCE is set.
void registerComparison(const char* name, int iterations, void (*body)(benchmark::State&));

// Keeps the calling thread, and the threads and processes that it starts from now on, on one core. Ends the
// program if the kernel refuses.
void pinToCore(int core);

}  // namespace bench
