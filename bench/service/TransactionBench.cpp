// Round trips to the service, against those to an echo service over the same carrier.

#include <algorithm>
#include <atomic>
#include <iterator>
#include <thread>

#include "Benches.h"
#include "Calls.h"
#include "collectors/Histories.h"
#include "support/Limits.h"
#include "support/ProcessFigures.h"

namespace servicebench {
namespace {

using fixture::IDiagnosticsCollectorService;

double us(double ns) {
  return ns / 1000;
}

struct Limits {
  double p50;
  double p99;
};

// One iteration makes four calls: to the service; to the echo, which answers with the same bundle but has it
// ready; to the service without reading the reply; and for a reply of as many bytes that are no bundle. The
// limits are for the service against the echo. The ratio to the plain bytes, which nobody packs or reads, is
// only printed.
void compareCalls(benchmark::State& state, uint32_t code, Call (*to)(const android::sp<android::IBinder>&),
                  const Limits& atMost) {
  useOneCore();
  const ServiceAndEcho servers;
  const size_t size = replyBytes(code);
  const Call calls[] = {to(servers.service()), to(servers.echo()), Call::unread(code),
                        Call::plainBytes(servers.bytes(), size)};
  std::vector<double> ns[std::size(calls)];
  for (auto _ : state) {
    for (size_t i = 0; i < std::size(calls); ++i) ns[i].push_back(calls[i].timeNs());
    state.SetIterationTime(ns[0].back() / 1e9);
  }
  const auto& [ours, echo, unread, bytes] = ns;
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
  bench::requireAtMost(state, "ratio_p50", percentile(ours, 0.5) / percentile(echo, 0.5), atMost.p50);
  bench::requireAtMost(state, "ratio_p99", percentile(ours, 0.99) / percentile(echo, 0.99), atMost.p99);
}

void oneProcess(benchmark::State& state) {
  compareCalls(state, IDiagnosticsCollectorService::kGetApplicationStateDataForProcess, &Call::oneProcess,
               {1.8, 4});
}

void allProcesses(benchmark::State& state) {
  compareCalls(state, IDiagnosticsCollectorService::kGetAllAvailableApplicationStateData, &Call::allProcesses,
               {2.5, 4});
}

// The processor time that the service spends on a system context with seven full histories, against making
// their reports in this process. The service adds packing them and the carrier. The wall time of a call is
// printed.
void systemContext(benchmark::State& state) {
  useOneCore();
  fixture::Daemon daemon;
  const auto service = startHelper(daemon, {"histories"});
  if (!fixture::eventually([] { return fixture::Daemon::answers(); })) state.SkipWithError("no service");
  const bench::Histories histories;
  const Call call = Call::systemContext(ServiceAndEcho::service());
  call.timeNs();
  const uint64_t before = bench::processorNs(service->pid());
  std::vector<double> callNs;
  std::vector<double> dumpNs;
  for (auto _ : state) {
    callNs.push_back(call.timeNs());
    const double start = nowNs();
    benchmark::DoNotOptimize(histories.manager->dumpSystemStateHistory());
    dumpNs.push_back(nowNs() - start);
    state.SetIterationTime(callNs.back() / 1e9);
  }
  const auto spentNs = static_cast<double>(bench::processorNs(service->pid()) - before);
  const double eachNs = spentNs / static_cast<double>(callNs.size());
  state.counters["p50_us"] = us(percentile(callNs, 0.5));
  state.counters["p99_us"] = us(percentile(callNs, 0.99));
  state.counters["processor_us"] = us(eachNs);
  state.counters["dump_p50_us"] = us(percentile(dumpNs, 0.5));
  bench::requireAtMost(state, "ratio", eachNs / percentile(dumpNs, 0.5), 1.3);
}

struct Throughput {
  double callsPerSecond = 0;
  double longestNs = 0;
};

// Makes `call` in 16 threads at the same time, again and again for `seconds`.
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

// With so many clients the carrier costs 8 us of a call and the service's own work 9.5 us, so 0.46 is usual.
void sixteenClients(benchmark::State& state) {
  constexpr double kAtLeast = 0.4;
  useOneCore();
  const ServiceAndEcho servers;
  const Call ours = Call::oneProcess(servers.service());
  const Call echo = Call::oneProcess(servers.echo());
  std::vector<double> ratios;
  double longestNs = 0;
  Throughput last;
  const double seconds = bench::rounds(2);
  throughput(ours, seconds / 4);  // the pools of both grow to their size
  throughput(echo, seconds / 4);
  for (auto _ : state) {
    last = throughput(ours, seconds);
    ratios.push_back(last.callsPerSecond / throughput(echo, seconds).callsPerSecond);
    longestNs = std::max(longestNs, last.longestNs);
    state.SetIterationTime(seconds);
  }
  state.counters["calls_per_s"] = last.callsPerSecond;
  state.counters["longest_us"] = us(longestNs);
  bench::requireAtLeast(state, "ratio", percentile(ratios, 0.5), kAtLeast);
}

// Times calls as of a reporter that asks now and then. A failed call ends the program.
void timeOneProcess(benchmark::State& state) {
  const Call call = Call::oneProcess(ServiceAndEcho::service());
  std::vector<double> times;
  for (auto _ : state) {
    times.push_back(call.timeNs());
    state.SetIterationTime(times.back() / 1e9);
    usleep(2000);
  }
  state.counters["p50_us"] = us(percentile(times, 0.5));
  state.counters["p99_us"] = us(percentile(times, 0.99));
  state.counters["max_us"] = us(percentile(times, 1));
}

// Other processes, one for each list of the helper's arguments, keep the machine or the service busy.
void underLoad(benchmark::State& state, const std::vector<std::vector<std::string>>& loads) {
  useAllCores();
  const ServiceAndEcho servers;
  std::vector<std::unique_ptr<fixture::Process>> others;
  others.reserve(loads.size());
  for (const auto& arguments : loads) others.push_back(startHelper(servers.daemon(), arguments));
  timeOneProcess(state);
  for (const auto& other : others) {
    if (!other->running()) state.SkipWithError("a process that makes the load has ended");
  }
}

// Another thread asks for all processes again and again.
void whileAllAreAsked(benchmark::State& state) {
  useAllCores();
  const ServiceAndEcho servers;
  const Call all = Call::allProcesses(servers.service());
  std::atomic<bool> stop = false;
  std::atomic<int> calls = 0;
  std::thread other([&] {
    for (; !stop; ++calls) all.timeNs();
  });
  timeOneProcess(state);
  stop = true;
  other.join();
  state.counters["other_calls"] = calls.load();
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
    benchmark::RegisterBenchmark(name, body)->Iterations(bench::rounds(iterations))->UseManualTime();
  };
  add("one_process_vs_echo", oneProcess, 5000);
  add("all_processes_vs_echo", allProcesses, 500);
  add("system_context_vs_dump", systemContext, 301);
  add("sixteen_clients_vs_echo", sixteenClients, 5);
  add("one_process_at_5000_atoms_a_second", whileAtomsArrive, 3000);
  add("one_process_while_all_are_asked", whileAllAreAsked, 3000);
  add("one_process_while_the_machine_churns", whileTheMachineChurns, 3000);
}

}  // namespace servicebench
