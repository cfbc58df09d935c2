// The daemon while nobody calls: how soon it answers after its start, how often it wakes up, and its memory.

#include <string>

#include "Benches.h"
#include "Calls.h"
#include "support/Limits.h"
#include "support/ProcessFigures.h"

namespace servicebench {
namespace {

using bench::rounds;

// Every 30 seconds the daemon removes the states of processes that have ended. Nothing else wakes it up.
void idle(benchmark::State& state) {
  constexpr double kKibAtMost = 1.2 * 1024;
  constexpr int kCleanUps = 2;
  useAllCores();
  fixture::Daemon daemon;
  daemon.setProperties("# correlation is off\n");
  daemon.start();
  const pid_t pid = daemon.process().pid();
  const int seconds = rounds(kCleanUps * 30);
  sleep(1);  // the threads that the first calls woke go back to sleep
  const long before = bench::sleeps(pid);
  for (auto _ : state) {
    sleep(seconds);
    state.SetIterationTime(seconds);
  }
  bench::requireAtMost(state, "wake_ups", static_cast<double>(bench::sleeps(pid) - before), kCleanUps);
  bench::requireAtMost(state, "private_dirty_kib", static_cast<double>(bench::privateDirtyKib(pid)),
                       kKibAtMost);
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

// Returns the private memory of a new daemon after each of 2,000 keys was published `updates` times and one
// notification has made it take them all.
double settledKib(int updates) {
  constexpr int kBurstProcesses = 100;
  fixture::Daemon daemon;
  daemon.setProperties("# correlation is off\n");
  daemon.start();
  publishStates(kBurstProcesses, updates);
  fixture::Daemon::notifier()->notifySystemEvent({}, {});
  sleep(3);  // the daemon gives free memory back within two seconds
  return static_cast<double>(bench::privateDirtyKib(daemon.process().pid()));
}

// A burst must not leave more memory than the states that it leaves: the reference publishes each state once.
void afterBurst(benchmark::State& state) {
  useAllCores();
  const int updates = rounds(28);  // 56,000 atoms
  for (auto _ : state) {
    const double burstKib = settledKib(updates);
    const double statesKib = settledKib(1);
    state.counters["burst_kib"] = burstKib;
    state.counters["states_kib"] = statesKib;
    bench::requireAtMost(state, "ratio", burstKib / statesKib, 1.5);
    state.SetIterationTime(1);
  }
}

}  // namespace

void registerMemoryBenches() {
  benchmark::RegisterBenchmark("start_to_first_answer", firstAnswer)->Iterations(rounds(10))->UseManualTime();
  benchmark::RegisterBenchmark("idle_without_correlation", idle)->Iterations(1)->UseManualTime();
  benchmark::RegisterBenchmark("memory_after_a_burst", afterBurst)->Iterations(1)->UseManualTime();
}

}  // namespace servicebench
