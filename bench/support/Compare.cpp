#include "support/Compare.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

#include <sched.h>

#include "support/Limits.h"

namespace bench {
namespace {

double nowNs(Clock clock) {
  timespec time{};
  clock_gettime(clock == Clock::Wall ? CLOCK_MONOTONIC : CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

double timeOf(const std::function<void()>& work, Clock clock) {
  const double start = nowNs(clock);
  work();
  return nowNs(clock) - start;
}

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace

void compare(benchmark::State& state, double atMost, const std::function<void()>& ours,
             const std::function<void()>& reference, Clock clock) {
  std::vector<double> oursNs;
  std::vector<double> referenceNs;
  for (auto _ : state) {
    oursNs.push_back(timeOf(ours, clock));
    referenceNs.push_back(timeOf(reference, clock));
    state.SetIterationTime(oursNs.back() / 1e9);
  }
  state.counters["median_ns"] = median(oursNs);
  state.counters["reference_ns"] = median(referenceNs);
  requireAtMost(state, "ratio", median(oursNs) / median(referenceNs), atMost);
}

void registerComparison(const char* name, int iterations, void (*body)(benchmark::State&)) {
  benchmark::RegisterBenchmark(name, body)->Iterations(rounds(iterations))->UseManualTime();
}

void pinToCore(int core) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(core, &set);
  if (sched_setaffinity(0, sizeof(set), &set) != 0) {
    perror("sched_setaffinity");
    exit(1);
  }
}

}  // namespace bench
