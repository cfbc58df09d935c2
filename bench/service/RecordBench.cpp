// What diagctl record costs the service while 300 processes of 20 keys are known and some values change.

#include <string>
#include <thread>

#include <signal.h>
#include <statsd/StatsEventWriter.h>
#include <unistd.h>

#include "Benches.h"
#include "Calls.h"
#include "support/Limits.h"
#include "support/ProcessFigures.h"

namespace servicebench {
namespace {

constexpr double kPerCentAtMost = 1;
constexpr int kChangesPerSecond = 30;

// Publishes changes for a time; the service's processor time in it, in per cent of one core.
double coreShare(pid_t service, int seconds) {
  libstatsd::StatsEventWriter writer;
  const uint64_t before = bench::processorNs(service);
  const double start = nowNs();
  for (int i = 0; i < seconds * kChangesPerSecond; ++i) {
    writer.publishApplicationState(kFirstPid + i % kProcesses, keyName(i % kKeys), std::to_string(i));
    std::this_thread::sleep_for(std::chrono::microseconds(1'000'000 / kChangesPerSecond));
  }
  return 100 * static_cast<double>(bench::processorNs(service) - before) / (nowNs() - start);
}

void record(benchmark::State& state) {
  useAllCores();
  const std::string diagctl = fixture::staged("diagctl");
  fixture::Daemon daemon;
  daemon.start();
  publishStates();
  const pid_t service = daemon.process().pid();
  const int seconds = bench::rounds(20, 2);
  double alone = 0;
  double recorded = 0;
  for (auto _ : state) {
    alone = coreShare(service, seconds);
    fixture::Process recorder({diagctl, "record", "-o", daemon.dir().path("recording.jsonl")},
                              daemon.client(getuid()));
    recorded = coreShare(service, seconds);
    recorder.signal(SIGINT);
    if (recorder.wait() != 0) state.SkipWithError("the recorder failed");
    state.SetIterationTime(2.0 * seconds);
  }
  state.counters["alone_core_percent"] = alone;
  bench::requireAtMost(state, "core_percent", recorded - alone, kPerCentAtMost);
  state.counters["recorded_bytes"] =
      static_cast<double>(test::readFile(daemon.dir().path("recording.jsonl")).size());
}

}  // namespace

void registerRecordBench() {
  benchmark::RegisterBenchmark("record", record)->Iterations(1)->UseManualTime();
}

}  // namespace servicebench
