// Good and bad clients together. DIAG_LOAD_SECONDS says for how long (6 where it is not set).

#include <algorithm>
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
  return seconds != nullptr ? strtod(seconds, nullptr) : 6;
}

size_t median(std::vector<size_t> values) {
  std::sort(values.begin(), values.end());
  return values.empty() ? 0 : values[values.size() / 2];
}

// What the service has on its heap now. What it keeps resident beyond that is its allocator's affair.
size_t heapInUse(Daemon& daemon) {
  const std::string label = "heap in use: ";
  const size_t before = daemon.countInLog(label);
  daemon.process().signal(SIGUSR1);
  if (!fixture::eventually([&] { return daemon.countInLog(label) > before; })) return 0;
  const std::string log = daemon.log();
  return std::stoul(log.substr(log.rfind(label) + label.size()));
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
  std::vector<size_t> firstHalf;
  std::vector<size_t> secondHalf;
  const auto start = steady_clock::now();
  const auto elapsed = [start] { return duration<double>(steady_clock::now() - start).count(); };
  while (elapsed() < seconds) {
    badCompany.turn();
    (elapsed() < seconds / 2 ? firstHalf : secondHalf).push_back(heapInUse(daemon));
  }
  good.signal(SIGTERM);
  EXPECT_EQ(good.wait().value_or(-1), 0) << test::readFile(options.output);
  printf("good clients: %s", test::readFile(options.output).c_str());
  printf("heap in use, median: %zu KiB in the first half, %zu KiB in the second\n", median(firstHalf) / 1024,
         median(secondHalf) / 1024);
  // The answers under way differ from one look to the next; a leak of one answer a call would be 10 MiB and
  // more.
  EXPECT_LE(median(secondHalf), median(firstHalf) + median(firstHalf) / 4 + (1 << 20));
  const int status = daemon.stop(SIGTERM);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status << daemon.log();
}

}  // namespace
