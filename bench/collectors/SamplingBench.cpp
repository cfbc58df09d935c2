// What sampling costs over real time, and what full histories hold:
//
//   sampling_bench [SECONDS]     60 by default, 3 where DIAG_BENCH_ONCE is set
//
// runs two processes side by side, each on five files once a second: the collectors' manager with its thread,
// and a bare sampler (one thread, one timer, five pread() calls into rings). Prints the processor time that
// each spent on a sample, all threads together, as the kernel's scheduler accounts for it; and the private
// memory of a process whose seven histories are full.
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/timerfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>
#include <android/log.h>

#include "ChargeFiles.h"
#include "CpuUsageCollector.h"
#include "Device.h"
#include "PsiCollector.h"
#include "SystemMemInfoCollector.h"
#include "systemstatecollector/SystemStateCollectorManager.h"

namespace {

using namespace Torv::OS::Diagnostics;

constexpr double kCpuAtMost = 1.5;
constexpr double kMemoryAtMostKb = 6 * 1024;
constexpr int kSamples = 60;
constexpr std::array<const char*, 5> kPaths = {"/proc/pressure/cpu", "/proc/pressure/memory",
                                               "/proc/pressure/io", "/proc/stat", "/proc/meminfo"};

// The three processes' work.

template <typename Collector>
void add(SystemStateCollectorManager& manager) {
  auto collector = Collector::init(SystemStateCollectorConfig(kSamples, 1));
  if (collector != nullptr) manager.addCollector(std::move(collector));
}

[[noreturn]] void sampleWithManager() {
  PollStatistics statistics;
  SystemStateCollectorManager manager(statistics);
  add<PsiCpuCollector>(manager);
  add<PsiMemCollector>(manager);
  add<PsiIoCollector>(manager);
  add<CpuUsageCollector>(manager);
  add<SystemMemInfoCollector>(manager);
  manager.startCollectorThread();
  for (;;) pause();
}

[[noreturn]] void sampleBarely() {
  std::array<android::base::unique_fd, kPaths.size()> files;
  for (size_t i = 0; i < kPaths.size(); ++i) files[i].reset(open(kPaths[i], O_RDONLY | O_CLOEXEC));
  const android::base::unique_fd timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC));
  const itimerspec everySecond{{1, 0}, {1, 0}};
  timerfd_settime(timer.get(), 0, &everySecond, nullptr);
  using Slot = std::array<char, 16 * 1024>;
  std::array<std::vector<Slot>, kPaths.size()> rings;
  rings.fill(std::vector<Slot>(kSamples));
  for (size_t slot = 0;; slot = (slot + 1) % kSamples) {
    uint64_t expirations = 0;
    if (read(timer.get(), &expirations, sizeof(expirations)) < 0) exit(1);
    for (size_t i = 0; i < files.size(); ++i) {
      Slot& text = rings[i][slot];
      if (files[i].ok() && pread(files[i].get(), text.data(), text.size(), 0) < 0) exit(1);
    }
  }
}

void fillHistories() {
  const bench::Device device;
  setenv("TORV_DEVICE_ROOT", device.path().c_str(), 1);
  PollStatistics statistics;
  ChargeFiles chargeFiles;
  const auto manager = SystemStateCollectorManager::makeDefaultManager(statistics, chargeFiles);
  if (manager == nullptr) exit(1);
  // The slower collectors are sampled on every second poll.
  for (int second = 0; second < 2 * kSamples; ++second) {
    device.advanceTo(second);
    manager->pollCollectors();
  }
  puts("full");
  fflush(stdout);
  getchar();
  printf("%zu histories dumped\n", manager->dumpSystemStateHistory()->size());
  fflush(stdout);
  getchar();
}

// A child process: this program again in one of the roles above, its standard input and output in our hands.
class Child {
 public:
  explicit Child(const char* role) {
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) die("pipe2");
    mPid = fork();
    if (mPid == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      dup2(in[0], STDIN_FILENO);
      dup2(out[1], STDOUT_FILENO);
      execl("/proc/self/exe", "sampling_bench", role, nullptr);
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    mIn.reset(in[1]);
    mOut.reset(out[0]);
  }

  ~Child() {
    if (mPid < 0) return;
    kill(mPid, SIGKILL);
    waitpid(mPid, nullptr, 0);
  }

  void awaitEnd() {
    waitpid(mPid, nullptr, 0);
    mPid = -1;
  }

  // Waits until the child has written a line.
  void awaitLine() const {
    char character = 0;
    while (character != '\n') {
      if (read(mOut.get(), &character, 1) != 1) die("a child process ended early");
    }
  }

  void writeLine() const {
    if (write(mIn.get(), "\n", 1) != 1) die("write");
  }

  // Nanoseconds on a processor, all threads together.
  uint64_t cpuNs() const {
    uint64_t total = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(mPid) + "/task")) {
      uint64_t ns = 0;
      std::ifstream(task.path() / "schedstat") >> ns;
      total += ns;
    }
    return total;
  }

  long privateDirtyKb() const {
    std::ifstream rollup("/proc/" + std::to_string(mPid) + "/smaps_rollup");
    std::string word;
    while (rollup >> word && word != "Private_Dirty:") {
    }
    long kb = -1;
    rollup >> kb;
    return kb;
  }

 private:
  [[noreturn]] static void die(const char* what) {
    fprintf(stderr, "%s: %s\n", what, strerror(errno));
    exit(1);
  }

  pid_t mPid = -1;
  android::base::unique_fd mIn;
  android::base::unique_fd mOut;
};

void print(const char* what, double value, const char* unit, double ratio, double atMost) {
  printf("%-34s %10.1f %-4s ratio %.3f at most %.2f%s\n", what, value, unit, ratio, atMost,
         ratio > atMost ? "  OVER" : "");
}

void compareSampling(int seconds) {
  const Child ours("--with-manager");
  // Half a second apart, so that neither finds the processor awake and its caches warm from the other.
  usleep(500'000);
  const Child bare("--barely");
  sleep(2);
  usleep(250'000);
  const uint64_t oursBefore = ours.cpuNs();
  const uint64_t bareBefore = bare.cpuNs();
  sleep(static_cast<unsigned>(seconds));
  const double oursUs = static_cast<double>(ours.cpuNs() - oursBefore) / 1e3 / seconds;
  const double bareUs = static_cast<double>(bare.cpuNs() - bareBefore) / 1e3 / seconds;
  printf("%-34s %10.1f us   (limit)\n", "bare sampler, a sample", bareUs);
  print("collectors, a sample", oursUs, "us", oursUs / bareUs, kCpuAtMost);
}

void measureMemory() {
  Child child("--fill");
  child.awaitLine();
  const double full = static_cast<double>(child.privateDirtyKb());
  print("Private_Dirty, histories full", full, "KiB", full / kMemoryAtMostKb, 1);
  child.writeLine();
  child.awaitLine();
  const double dumped = static_cast<double>(child.privateDirtyKb());
  print("Private_Dirty, after a dump", dumped, "KiB", dumped / kMemoryAtMostKb, 1);
  child.writeLine();
  child.awaitEnd();
}

}  // namespace

int main(int argc, char** argv) {
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  int seconds = getenv("DIAG_BENCH_ONCE") != nullptr ? 3 : 60;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--with-manager") sampleWithManager();
    if (argument == "--barely") sampleBarely();
    if (argument == "--fill") {
      fillHistories();
      return 0;
    }
    if (std::isdigit(static_cast<unsigned char>(argument[0])))
      seconds = std::max(1, std::atoi(argument.c_str()));
  }
  measureMemory();
  compareSampling(seconds);
  return 0;
}
