// Good and bad clients together. DIAG_LOAD_SECONDS says for how long (6 where it is not set).

#include <cstdlib>
#include <string>
#include <vector>

#include <signal.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "fixture/Daemon.h"

namespace {

using fixture::Daemon;
using fixture::Process;
using fixture::staged;
using std::chrono::duration;
using std::chrono::steady_clock;

double loadSeconds() {
  const char* seconds = getenv("DIAG_LOAD_SECONDS");
  return seconds != nullptr ? atof(seconds) : 6;
}

size_t residentKib(pid_t pid) {
  const std::string status = test::readFile("/proc/" + std::to_string(pid) + "/status");
  return std::stoul(status.substr(status.find("VmRSS:") + 6));
}

// Kills a greedy client in mid-call, and stops another that does not read its answers, again and again.
class BadCompany {
 public:
  explicit BadCompany(const Daemon& daemon) : mOptions(daemon.client()) {}

  void turn() {
    mKilled =
        std::make_unique<Process>(std::vector<std::string>{staged("test_client"), "greedy", "2"}, mOptions);
    mStalled =
        std::make_unique<Process>(std::vector<std::string>{staged("test_client"), "greedy", "8"}, mOptions);
    usleep(200'000);
    mKilled->signal(SIGKILL);
    mStalled->signal(SIGSTOP);
    usleep(100'000);
  }

 private:
  fixture::ProcessOptions mOptions;
  std::unique_ptr<Process> mKilled;
  std::unique_ptr<Process> mStalled;
};

TEST(LoadTest, GoodClientsGetEveryAnswerAndMemoryStaysFlat) {
  const double seconds = loadSeconds();
  Daemon daemon;
  // A small quarantine, so that what AddressSanitizer keeps is not taken for growth.
  const test::ScopedEnv sanitizer("ASAN_OPTIONS", "quarantine_size_mb=4");
  daemon.start(staged("stoppable_service"));
  const std::string pid = std::to_string(getpid());
  fixture::ProcessOptions options = daemon.client(fixture::applicationUid());
  Process publisher({staged("test_client"), "publish", pid, "500"}, options);
  ASSERT_TRUE(fixture::eventually([&] {
    android::os::PersistableBundle process;
    daemon.collector()->getApplicationStateDataForProcess(getpid(), android::String16(), &process);
    return !process.empty();
  }));
  options.output = daemon.dir().path("good.log");
  Process good({staged("test_client"), "good", "3", pid}, options);
  Process garbage({staged("test_client"), "garbage", "2", "7"}, daemon.client());

  BadCompany badCompany(daemon);
  size_t halfwayKib = 0;
  size_t highestKib = 0;
  const auto start = steady_clock::now();
  while (duration<double>(steady_clock::now() - start).count() < seconds) {
    badCompany.turn();
    const size_t nowKib = residentKib(daemon.process().pid());
    const bool secondHalf = duration<double>(steady_clock::now() - start).count() > seconds / 2;
    if (!secondHalf) halfwayKib = std::max(halfwayKib, nowKib);
    if (secondHalf) highestKib = std::max(highestKib, nowKib);
  }
  good.signal(SIGTERM);
  const int goodStatus = good.wait().value_or(-1);
  EXPECT_EQ(goodStatus, 0) << test::readFile(options.output);
  printf("good clients: %s", test::readFile(options.output).c_str());
  printf("resident memory: at most %zu KiB in the first half, %zu KiB in the second\n", halfwayKib,
         highestKib);
  // Allocators keep some slack; a leak of one answer a call would be hundreds of MiB.
  EXPECT_LE(highestKib, halfwayKib + halfwayKib / 10 + 2048);
  const int status = daemon.stop(SIGTERM);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status << daemon.log();
}

}  // namespace
