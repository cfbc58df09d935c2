// Figures that have a limit. A benchmark program prints each beside its limit and fails if one is past it.
//
// With the environment variable DIAG_BENCH_ONCE set, benchmarks make one round of each measurement: enough to
// show that they work, too few for a figure. Nothing is judged then.
#pragma once

#include <string>

#include <benchmark/benchmark.h>

namespace bench {

// Returns whether DIAG_BENCH_ONCE is set.
bool runsOnce();

// Returns `full`, or `once` if runsOnce().
int rounds(int full, int once = 1);

// Reports `value` as the counter `name` and its limit as `<name>_at_most` (or `_at_least`), both in the unit
// that the name ends in; a name without one is a ratio. A value past its limit is labelled "PAST ITS LIMIT"
// and makes runAll() return 1.
void requireAtMost(benchmark::State& state, const std::string& name, double value, double limit);
void requireAtLeast(benchmark::State& state, const std::string& name, double value, double limit);

// The same for programs that print their figures themselves: returns whether `value` is past the limit, and
// remembers it for exitStatus(). False if runsOnce().
bool isPast(double value, double atMost);

// Runs the registered benchmarks with the program's arguments. Returns exitStatus().
int runAll(int argc, char** argv);

// Returns 1 if a figure was past its limit, else 0.
int exitStatus();

}  // namespace bench
