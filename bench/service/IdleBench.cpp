// What the daemon costs while nobody asks, and how soon it answers after its start.

#include <cstdlib>
#include <string>

#include "Benches.h"
#include "Calls.h"
#include "support/ProcessFigures.h"

namespace servicebench {
namespace {

void idle(benchmark::State& state) {
  constexpr double kKibAtMost = 4096;
  constexpr int kPeriods = 2;
  useAllCores();
  fixture::Daemon daemon;
  daemon.setProperties("# correlation is off\n");
  daemon.start();
  const pid_t pid = daemon.process().pid();
  const int seconds = getenv("DIAG_BENCH_ONCE") != nullptr ? 1 : kPeriods * 30;
  sleep(1);  // lets what was woken by the first calls go back to sleep
  const long before = bench::sleeps(pid);
  for (auto _ : state) {
    sleep(seconds);
    state.SetIterationTime(seconds);
  }
  const long wakeUps = bench::sleeps(pid) - before;
  const long dirtyKib = bench::privateDirtyKib(pid);
  state.counters["wake_ups"] = static_cast<double>(wakeUps);
  state.counters["at_most_wake_ups"] = kPeriods;
  state.counters["private_dirty_kib"] = static_cast<double>(dirtyKib);
  state.counters["at_most_kib"] = kKibAtMost;
  if (wakeUps > kPeriods || static_cast<double>(dirtyKib) > kKibAtMost) state.SetLabel("OVER");
}

void firstAnswer(benchmark::State& state) {
  useAllCores();
  std::vector<double> times;
  for (auto _ : state) {
    fixture::Daemon daemon;
    const std::string program = fixture::staged("diagnostics_collector_service");
    const double start = nowNs();
    daemon.launch(program);
    android::os::PersistableBundle all;
    while (true) {
      const auto binder = fixture::Daemon::binder(fixture::IDiagnosticsCollectorService::kServiceName);
      if (binder != nullptr && daemon.collector()->getAllAvailableApplicationStateData(&all).isOk()) break;
    }
    times.push_back(nowNs() - start);
    state.SetIterationTime(times.back() / 1e9);
  }
  state.counters["p50_ms"] = percentile(times, 0.5) / 1e6;
  state.counters["max_ms"] = percentile(times, 1) / 1e6;
}

}  // namespace

void registerIdleBenches() {
  benchmark::RegisterBenchmark("start_to_first_answer", firstAnswer)->Iterations(rounds(10))->UseManualTime();
  benchmark::RegisterBenchmark("idle_without_correlation", idle)->Iterations(1)->UseManualTime();
}

}  // namespace servicebench
