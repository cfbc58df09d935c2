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

TEST(LoadTest, GoodClientsGetEveryAnswerAndMemoryStaysFlat) {
  const double seconds = loadSeconds();
  Daemon daemon;
  daemon.start(staged("stoppable_service"));
  const std::string pid = std::to_string(getpid());
  fixture::ProcessOptions options = daemon.client(fixture::applicationUid());
  ASSERT_TRUE(fixture::publish(getpid(), "key", "the first"));
  options.output = daemon.dir().path("good.log");
  Process good({staged("test_client"), "good", "3", pid}, options);
  Process garbage({staged("test_client"), "garbage", "2", "7"}, daemon.client());

  std::vector<size_t> firstHalf;
  std::vector<size_t> secondHalf;
  const auto start = steady_clock::now();
  const auto elapsed = [start] { return duration<double>(steady_clock::now() - start).count(); };
  while (elapsed() < seconds) {
    for (int i = 0; i < 100; ++i) (void)fixture::publish(getpid(), "key " + std::to_string(i % 20), "value");
    Process killed({staged("test_client"), "greedy", "2"}, daemon.client());
    Process stalled({staged("test_client"), "greedy", "8"}, daemon.client());
    usleep(200'000);
    killed.signal(SIGKILL);
    stalled.signal(SIGSTOP);
    usleep(100'000);
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
  EXPECT_EQ(daemon.countInLog("The Diagnostics Collector Service is starting threadpool"), 1u);
  EXPECT_EQ(daemon.countInLog("The Diagnostics Collector Service is exited"), 1u);
}

}  // namespace
