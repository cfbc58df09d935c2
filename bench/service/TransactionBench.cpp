// Round trips, beside an echo of the same reply size over the same carrier.

#include <algorithm>
#include <atomic>
#include <iterator>
#include <thread>

#include "Benches.h"
#include "Calls.h"

namespace servicebench {
namespace {

using fixture::IDiagnosticsCollectorService;

constexpr auto kService = IDiagnosticsCollectorService::kServiceName;
constexpr char kEcho[] = "echo";

double us(double ns) {
  return ns / 1000;
}

struct Limits {
  double p50;
  double p99;
};

// One iteration is a call to the service and one to the echo, which answers the same bundle ready made; then
// the same without the client's reading: a bare transaction, and one for as many bytes that were never a
// bundle. The limits are for the bundle's echo. Against the bytes, which nobody packs or reads, the ratio is
// printed.
void compareCalls(benchmark::State& state, uint32_t code, Call (*to)(const char*), const Limits& atMost) {
  useOneCore();
  const Scene scene;
  const size_t size = replyBytes(code);
  const Call calls[] = {to(kService), to(kEcho), Call::unread(code), Call::forBytes(size)};
  std::vector<double> ns[std::size(calls)];
  for (auto _ : state) {
    for (size_t i = 0; i < std::size(calls); ++i) ns[i].push_back(calls[i].timeNs());
    state.SetIterationTime(ns[0].back() / 1e9);
  }
  const auto& [ours, echo, unread, bytes] = ns;
  const double p50 = percentile(ours, 0.5) / percentile(echo, 0.5);
  const double p99 = percentile(ours, 0.99) / percentile(echo, 0.99);
  state.counters["reply_bytes"] = static_cast<double>(size);
  state.counters["p50_us"] = us(percentile(ours, 0.5));
  state.counters["p99_us"] = us(percentile(ours, 0.99));
  state.counters["max_us"] = us(percentile(ours, 1));
  state.counters["echo_p50_us"] = us(percentile(echo, 0.5));
  state.counters["echo_p99_us"] = us(percentile(echo, 0.99));
  state.counters["unread_p50_us"] = us(percentile(unread, 0.5));
  state.counters["bytes_p50_us"] = us(percentile(bytes, 0.5));
  state.counters["ratio_to_bytes_p50"] = percentile(ours, 0.5) / percentile(bytes, 0.5);
  state.counters["ratio_to_bytes_p99"] = percentile(ours, 0.99) / percentile(bytes, 0.99);
  state.counters["ratio_p50"] = p50;
  state.counters["at_most_p50"] = atMost.p50;
  state.counters["ratio_p99"] = p99;
  state.counters["at_most_p99"] = atMost.p99;
  if (p50 > atMost.p50 || p99 > atMost.p99) state.SetLabel("OVER");
}

void oneProcess(benchmark::State& state) {
  compareCalls(state, IDiagnosticsCollectorService::kGetApplicationStateDataForProcess, &Call::forOne,
               {2, 4});
}

void allProcesses(benchmark::State& state) {
  compareCalls(state, IDiagnosticsCollectorService::kGetAllAvailableApplicationStateData, &Call::forAll,
               {3, 4});
}

struct Throughput {
  double callsPerSecond = 0;
  double longestNs = 0;
};

// `call` by 16 threads at once.
Throughput throughput(const Call& call, double seconds) {
  constexpr int kThreads = 16;
  std::atomic<long> calls = 0;
  std::vector<double> longest(kThreads);
  const double start = nowNs();
  const double end = start + seconds * 1e9;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      for (; nowNs() < end; ++calls) longest[i] = std::max(longest[i], call.timeNs());
    });
  }
  for (std::thread& thread : threads) thread.join();
  return {static_cast<double>(calls) / ((nowNs() - start) / 1e9),
          *std::max_element(longest.begin(), longest.end())};
}

void sixteenClients(benchmark::State& state) {
  constexpr double kAtLeast = 0.6;
  useOneCore();
  const Scene scene;
  const Call ours = Call::forOne(kService);
  const Call echo = Call::forOne(kEcho);
  std::vector<double> ratios;
  double longestNs = 0;
  Throughput last;
  const double seconds = rounds(2);
  throughput(ours, seconds / 4);  // lets the pools of both grow to their size
  throughput(echo, seconds / 4);
  for (auto _ : state) {
    last = throughput(ours, seconds);
    ratios.push_back(last.callsPerSecond / throughput(echo, seconds).callsPerSecond);
    longestNs = std::max(longestNs, last.longestNs);
    state.SetIterationTime(seconds);
  }
  state.counters["calls_per_s"] = last.callsPerSecond;
  state.counters["longest_us"] = us(longestNs);
  state.counters["ratio"] = percentile(ratios, 0.5);
  state.counters["at_least"] = kAtLeast;
  if (percentile(ratios, 0.5) < kAtLeast) state.SetLabel("UNDER");
}

// One iteration is one call; a failed one would end the program.
void underLoad(benchmark::State& state, const std::vector<std::vector<std::string>>& company) {
  useAllCores();
  const Scene scene;
  std::vector<std::unique_ptr<fixture::Process>> others;
  others.reserve(company.size());
  for (const auto& arguments : company) others.push_back(scene.helper(arguments));
  const Call call = Call::forOne(kService);
  std::vector<double> times;
  for (auto _ : state) {
    times.push_back(call.timeNs());
    state.SetIterationTime(times.back() / 1e9);
    usleep(2000);  // a reporter now and then, not a flood
  }
  for (const auto& other : others) {
    if (!other->running()) state.SkipWithError("a process that was to make the load has ended");
  }
  state.counters["p50_us"] = us(percentile(times, 0.5));
  state.counters["p99_us"] = us(percentile(times, 0.99));
  state.counters["max_us"] = us(percentile(times, 1));
}

void whileAtomsArrive(benchmark::State& state) {
  underLoad(state, {{"publish", "5000"}});
}

void whileTheMachineChurns(benchmark::State& state) {
  underLoad(state, {{"churn", "memory"}, {"churn", "disk"}, {"churn", "cores"}});
}

}  // namespace

void registerTransactionBenches() {
  const auto add = [](const char* name, void (*body)(benchmark::State&), int iterations) {
    benchmark::RegisterBenchmark(name, body)->Iterations(rounds(iterations))->UseManualTime();
  };
  add("one_process_vs_echo", oneProcess, 5000);
  add("all_processes_vs_echo", allProcesses, 500);
  add("sixteen_clients_vs_echo", sixteenClients, 5);
  add("one_process_at_5000_atoms_a_second", whileAtomsArrive, 3000);
  add("one_process_while_the_machine_churns", whileTheMachineChurns, 3000);
}

}  // namespace servicebench
