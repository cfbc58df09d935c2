#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <vector>

#include "Benches.h"
#include "CpuUsageCollector.h"
#include "PsiCollector.h"
#include "Sources.h"
#include "SystemMemInfoCollector.h"
#include "support/Compare.h"
#include "support/Limits.h"
#include "systemstatecollector/SystemStateCollectorManager.h"

namespace {

std::atomic<uint64_t> gAllocations{0};

}  // namespace

void* operator new(size_t size) {
  gAllocations.fetch_add(1, std::memory_order_relaxed);
  void* const memory = std::malloc(size);
  if (memory == nullptr) std::abort();
  return memory;
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, size_t /*size*/) noexcept {
  std::free(memory);
}

namespace bench {
namespace {

using namespace Torv::OS::Diagnostics;

constexpr int kPollsPerRound = 100;

template <typename Collector>
void add(SystemStateCollectorManager& manager) {
  auto collector = Collector::init(SystemStateCollectorConfig(60, 1));
  if (collector != nullptr) manager.addCollector(std::move(collector));
}

// The reference: reads the same files and does nothing else.
class BareReader {
 public:
  void poll() {
    for (const auto& file : mFiles) {
      if (file.ok()) benchmark::DoNotOptimize(pread(file.get(), mBuffer.data(), mBuffer.size(), 0));
    }
  }

 private:
  const SourceFiles mFiles = openSources();
  std::vector<char> mBuffer = std::vector<char>(64 * 1024);
};

void pollAgainstBareReads(benchmark::State& state) {
  PollStatistics statistics;
  SystemStateCollectorManager manager(statistics);
  add<PsiCpuCollector>(manager);
  add<PsiMemCollector>(manager);
  add<PsiIoCollector>(manager);
  add<CpuUsageCollector>(manager);
  add<SystemMemInfoCollector>(manager);
  BareReader bare;
  // Every slot of the histories allocates its memory when it is first used.
  for (int i = 0; i < 60; ++i) manager.pollCollectors();

  uint64_t allocations = 0;
  compare(
      state, 1.15,
      [&] {
        const uint64_t before = gAllocations;
        for (int i = 0; i < kPollsPerRound; ++i) manager.pollCollectors();
        allocations += gAllocations - before;
      },
      [&] {
        for (int i = 0; i < kPollsPerRound; ++i) bare.poll();
      });
  state.counters["polls"] = kPollsPerRound;
  requireAtMost(state, "allocations", static_cast<double>(allocations), 0);
}

}  // namespace

void registerPollBenches() {
  registerComparison("poll/five_sources", 101, pollAgainstBareReads);
}

}  // namespace bench
