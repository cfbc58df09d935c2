// Sampling over real time, and the memory of full histories:
//
//   sampling_bench [SECONDS]     60 by default, 3 if DIAG_BENCH_ONCE is set
//
// Runs two processes that read the same five files at the same rate: the service with full histories, and a
// bare sampler (one thread, one timer, one pread() for each file into a ring). Prints the processor time that
// each spends on one second's sample, over all its threads, as the kernel's scheduler counts it. Prints the
// private memory of the service, and of a process with the histories of eight processors.
#include <sys/timerfd.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>
#include <android/log.h>

#include "Histories.h"
#include "Sources.h"
#include "fixture/Daemon.h"
#include "support/Limits.h"
#include "support/ProcessFigures.h"

namespace {

constexpr double kCpuAtMost = 1.25;
constexpr double kMemoryAtMostKib = 6 * 1024;
constexpr int kSamples = bench::Histories::kSamples;
constexpr unsigned kSecondsUntilFull = 2 * kSamples + 5;  // some sources are read every other second

void print(const char* what, double value, const char* unit, double ratio, double atMost) {
  printf("%-34s %10.1f %-4s ratio %.3f at most %.2f%s\n", what, value, unit, ratio, atMost,
         bench::isPast(ratio, atMost) ? "  PAST ITS LIMIT" : "");
  fflush(stdout);
}

void printMemory(const char* what, pid_t pid) {
  const auto kib = static_cast<double>(bench::privateDirtyKib(pid));
  print(what, kib, "KiB", kib / kMemoryAtMostKib, 1);
}

// The reference: reads the sources as often as the service does and keeps the texts.
[[noreturn]] void runBareSampler() {
  const bench::SourceFiles files = bench::openSources();
  const android::base::unique_fd timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC));
  const itimerspec everySecond{{1, 0}, {1, 0}};
  timerfd_settime(timer.get(), 0, &everySecond, nullptr);
  using Slot = std::array<char, 16 * 1024>;
  std::array<std::vector<Slot>, files.size()> rings;
  rings.fill(std::vector<Slot>(kSamples));
  for (size_t second = 0;; ++second) {
    uint64_t expirations = 0;
    if (read(timer.get(), &expirations, sizeof(expirations)) < 0) exit(1);
    // Like the service, reads the last file every other second.
    for (size_t i = 0; i < files.size() - second % 2; ++i) {
      Slot& text = rings[i][second % kSamples];
      if (files[i].ok() && pread(files[i].get(), text.data(), text.size(), 0) < 0) exit(1);
    }
  }
}

void measureFullHistories() {
  const bench::Histories histories;
  printMemory("seven full, eight processors", getpid());
  histories.manager->dumpSystemStateHistory();
  printMemory("the same after a dump", getpid());
}

void compareSampling(int seconds, unsigned untilFull) {
  fixture::Daemon daemon;
  daemon.start();
  // Starts the other half a second later, because a sampler that runs right after the other finds the
  // processor awake and its caches warm.
  usleep(500'000);
  const fixture::Process bare({fixture::staged("sampling_bench"), "--bare-sampler"});
  const pid_t ours = daemon.process().pid();
  sleep(untilFull);
  const uint64_t oursBefore = bench::processorNs(ours);
  const uint64_t bareBefore = bench::processorNs(bare.pid());
  sleep(static_cast<unsigned>(seconds));
  const double oursUs = static_cast<double>(bench::processorNs(ours) - oursBefore) / 1e3 / seconds;
  const double bareUs = static_cast<double>(bench::processorNs(bare.pid()) - bareBefore) / 1e3 / seconds;
  printf("%-34s %10.1f us\n", "bare sampler, a sample", bareUs);
  print("the whole service, a sample", oursUs, "us", oursUs / bareUs, kCpuAtMost);
  printMemory("the service, histories full", ours);
}

}  // namespace

int main(int argc, char** argv) {
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  const std::string argument = argc > 1 ? argv[1] : "";
  if (argument == "--bare-sampler") runBareSampler();
  // bench/run gives flags to all programs. They count as 0 seconds here, which means the default.
  const int seconds = std::atoi(argument.c_str());
  measureFullHistories();
  compareSampling(seconds > 0 ? seconds : bench::rounds(60, 3), bench::rounds(kSecondsUntilFull, 2));
  return bench::exitStatus();
}
