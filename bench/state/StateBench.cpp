#include <algorithm>
#include <chrono>
#include <memory>

#include <malloc.h>

#include "Baseline.h"
#include "storage/BlackBox.h"
#include "support/Compare.h"
#include "support/Limits.h"

namespace {

using bench::Baseline;
using Torv::OS::Diagnostics::BlackBox;

// More processes than the default limits admit, so that what a process costs shows beside the caches.
struct LargeBox : BlackBox {
  LargeBox()
      : BlackBox(
            &unixTime, [](pid_t) { return true; }, limits()) {}

  static Torv::OS::Diagnostics::BlackBoxLimits limits() {
    Torv::OS::Diagnostics::BlackBoxLimits limits;
    limits.maxBytes = limits.bytesAfterCut = SIZE_MAX;
    limits.maxProcesses = SIZE_MAX;
    return limits;
  }
};

constexpr int kProcesses = 10'000;
constexpr int kRounds = 3;

void fill(BlackBox& box, int processes) {
  for (const bench::Update& update : bench::updates(processes, kRounds, 1)) {
    box.addProcessState(update.pid, *update.key, update.timestamp, update.value);
  }
}

void fill(Baseline& baseline, int processes) {
  for (const bench::Update& update : bench::updates(processes, kRounds, 1)) {
    baseline.add(update.pid, *update.key, update.timestamp, update.value);
  }
}

template <typename Table>
std::unique_ptr<Table> filled(int processes) {
  auto table = std::make_unique<Table>();
  fill(*table, processes);
  return table;
}

template <typename Table>
double bytesOf(int processes) {
  const size_t before = mallinfo2().uordblks;
  const auto table = filled<Table>(processes);
  return static_cast<double>(mallinfo2().uordblks - before);
}

void addSteadyState(benchmark::State& state) {
  const auto box = filled<LargeBox>(kProcesses);
  const auto baseline = filled<Baseline>(kProcesses);
  std::vector<bench::Update> load = bench::updates(kProcesses, 1, INT64_C(1'000'000'000));
  int64_t later = 0;  // makes the times of every pass newer than those of the pass before
  bench::compare(
      state, 0.9,
      [&] {
        later += INT64_C(1'000'000'000);
        for (const auto& [pid, key, timestamp, value] : load) {
          box->addProcessState(pid, *key, timestamp + later, value);
        }
      },
      [&] {
        for (const auto& [pid, key, timestamp, value] : load) {
          baseline->add(pid, *key, timestamp + later, value);
        }
      });
  state.counters["ns_per_add"] = state.counters["median_ns"] / static_cast<double>(load.size());
}

void memory(benchmark::State& state) {
  double ours = 0;
  double reference = 0;
  for (auto _ : state) {
    ours = bytesOf<LargeBox>(kProcesses);
    reference = bytesOf<Baseline>(kProcesses);
  }
  state.counters["bytes_per_key"] = ours / kProcesses / bench::kKeys;
  state.counters["reference_bytes_per_key"] = reference / kProcesses / bench::kKeys;
  bench::requireAtMost(state, "ratio", ours / reference, 0.8);
}

// Calls `query` often enough that the process it asks about stays in the processor's caches.
template <typename Query>
std::function<void()> manyTimes(const Query& query) {
  return [&query] {
    for (int i = 0; i < 2'000; i++) benchmark::DoNotOptimize(query());
  };
}

void oneOfManyAgainstOneOfFew(benchmark::State& state) {
  const auto many = filled<LargeBox>(kProcesses);
  const auto few = filled<LargeBox>(10);
  const auto ofMany = [&] { return many->getAllForPid(5); };
  const auto ofFew = [&] { return few->getAllForPid(5); };
  bench::compare(state, 1.2, manyTimes(ofMany), manyTimes(ofFew));
}

void oneProcessAgainstItsCopy(benchmark::State& state) {
  const auto box = filled<LargeBox>(kProcesses);
  const auto baseline = filled<Baseline>(kProcesses);
  const auto ours = [&] { return box->getAllForPid(5); };
  const auto copy = [&] { return baseline->newest(5); };
  bench::compare(state, 1.15, manyTimes(ours), manyTimes(copy));
}

void snapshot(benchmark::State& state) {
  const auto box = filled<LargeBox>(kProcesses);
  const auto baseline = filled<Baseline>(kProcesses);
  // The manager holds its lock for this long.
  double longestNs = 0;
  bench::compare(
      state, 0.7,
      [&] {
        const auto start = std::chrono::steady_clock::now();
        const auto all = box->getAllProcessStates();
        longestNs = std::max(
            longestNs,
            std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count());
      },
      [&] { benchmark::DoNotOptimize(baseline->snapshot()); });
  state.counters["longest_lock_ms"] = longestNs / 1e6;
}

// One snapshot of 10,000 processes against ten of 1,000. The cost of a process must not grow with their
// number, except that 10,000 fit the processor's caches less well.
void snapshotGrowth(benchmark::State& state) {
  const auto many = filled<LargeBox>(kProcesses);
  const auto few = filled<LargeBox>(kProcesses / 10);
  bench::compare(
      state, 1.2, [&] { benchmark::DoNotOptimize(many->getAllProcessStates()); },
      [&] {
        for (int i = 0; i < 10; i++) benchmark::DoNotOptimize(few->getAllProcessStates());
      });
}

}  // namespace

void registerFetchBenchmarks();

int main(int argc, char** argv) {
  bench::registerComparison("addProcessState/10000 processes", 7, &addSteadyState);
  benchmark::RegisterBenchmark("memory/10000 processes", &memory)->Iterations(1);
  bench::registerComparison("getAllForPid/one of 10000 against one of 10", 15, &oneOfManyAgainstOneOfFew);
  bench::registerComparison("getAllForPid/against a copy", 15, &oneProcessAgainstItsCopy);
  bench::registerComparison("getAllProcessStates/10000 processes", 9, &snapshot);
  bench::registerComparison("getAllProcessStates/growth", 9, &snapshotGrowth);
  registerFetchBenchmarks();
  return bench::runAll(argc, argv);
}
