#include "support/Limits.h"

#include <cstdlib>

namespace bench {
namespace {

constexpr char kPastItsLimit[] = "PAST ITS LIMIT";

bool gPastLimit = false;

}  // namespace

bool runsOnce() {
  return getenv("DIAG_BENCH_ONCE") != nullptr;
}

int rounds(int full, int once) {
  return runsOnce() ? once : full;
}

void requireAtMost(benchmark::State& state, const std::string& name, double value, double limit) {
  state.counters[name] = value;
  state.counters[name + "_at_most"] = limit;
  if (isPast(value, limit)) state.SetLabel(kPastItsLimit);
}

void requireAtLeast(benchmark::State& state, const std::string& name, double value, double limit) {
  state.counters[name] = value;
  state.counters[name + "_at_least"] = limit;
  if (isPast(-value, -limit)) state.SetLabel(kPastItsLimit);
}

bool isPast(double value, double atMost) {
  // A figure that is not a number has not been measured, so it must not pass.
  const bool past = !runsOnce() && !(value <= atMost);
  gPastLimit = gPastLimit || past;
  return past;
}

int runAll(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return exitStatus();
}

int exitStatus() {
  return gPastLimit ? 1 : 0;
}

}  // namespace bench
