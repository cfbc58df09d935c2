// Good and bad clients together. DIAG_LOAD_SECONDS says for how long (default: 6).

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <signal.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "fixture/Daemon.h"

namespace {

using android::Parcel;
using android::String16;
using android::os::PersistableBundle;
using fixture::Daemon;
using fixture::IDiagnosticsCollectorService;
using fixture::IDiagnosticsNotificationService;
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

void callEverything(const Daemon& daemon) {
  PersistableBundle process;
  PersistableBundle all;
  PersistableBundle system;
  const auto collector = daemon.collector();
  EXPECT_TRUE(collector->getApplicationStateDataForProcess(getpid(), String16("test"), &process).isOk());
  EXPECT_TRUE(collector->getAllAvailableApplicationStateData(&all).isOk());
  EXPECT_TRUE(collector->getSystemContextData(&system).isOk());
  EXPECT_TRUE(daemon.notifier()->notifySystemEvent({}, {}).isOk());
  EXPECT_EQ(process.size(), 2u) << "the pid and the states";
  EXPECT_EQ(all.getPersistableBundleKeys().count(String16(std::to_string(getpid()).c_str())), 1u);
  EXPECT_EQ(system.getPersistableBundleKeys().count(String16("SystemContextData")), 1u);
}

// A request of random words, half of them behind a token that fits.
void sendGarbage(std::mt19937& random) {
  const bool toCollector = random() % 2 == 0;
  Parcel request;
  if (random() % 2 == 0) {
    request.writeInterfaceToken(toCollector ? IDiagnosticsCollectorService::descriptor
                                            : IDiagnosticsNotificationService::descriptor);
  }
  for (size_t words = random() % 64; words > 0; --words) {
    request.writeInt32(static_cast<int32_t>(random() % 4 == 0 ? random() : random() % 4));
  }
  Parcel reply;
  const auto service = Daemon::binder(toCollector ? IDiagnosticsCollectorService::kServiceName
                                                  : IDiagnosticsNotificationService::kServiceName);
  service->transact(random() % 8 == 0 ? random() : random() % 5, request, &reply,
                    random() % 4 == 0 ? android::IBinder::FLAG_ONEWAY : 0);
}

TEST(LoadTest, goodClientsGetEveryAnswerAndMemoryStaysFlat) {
  const double seconds = loadSeconds();
  Daemon daemon;
  daemon.start(staged("stoppable_service"));
  ASSERT_TRUE(fixture::publish(getpid(), "key", "the first"));
  std::atomic<bool> stop = false;
  std::atomic<long> calls = 0;
  std::vector<std::thread> clients;
  for (unsigned client = 0; client < 5; ++client) {
    clients.emplace_back([&, client] {
      std::mt19937 random(client);
      for (; !stop; ++calls) client < 3 ? callEverything(daemon) : sendGarbage(random);
    });
  }

  std::vector<size_t> firstHalf;
  std::vector<size_t> secondHalf;
  const auto start = steady_clock::now();
  const auto elapsed = [start] { return duration<double>(steady_clock::now() - start).count(); };
  while (elapsed() < seconds) {
    for (int i = 0; i < 100; ++i) (void)fixture::publish(getpid(), "key " + std::to_string(i % 20), "value");
    // One client dies in mid-call, and another does not read its answers.
    const Process killed({staged("attacker"), "wholeTableCalls"}, daemon.client());
    const Process stalled({staged("attacker"), "wholeTableCalls"}, daemon.client());
    usleep(200'000);
    killed.signal(SIGKILL);
    stalled.signal(SIGSTOP);
    usleep(100'000);
    (elapsed() < seconds / 2 ? firstHalf : secondHalf).push_back(heapInUse(daemon));
  }
  stop = true;
  for (std::thread& client : clients) client.join();
  printf("%ld calls; heap in use, median: %zu KiB in the first half, %zu KiB in the second\n", calls.load(),
         median(firstHalf) / 1024, median(secondHalf) / 1024);
  // The answers under way differ from one look to the next; a leak of one answer a call would be 10 MiB and
  // more.
  EXPECT_LE(median(secondHalf), median(firstHalf) + median(firstHalf) / 4 + (1 << 20));
  const int status = daemon.stop(SIGTERM);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status << daemon.log();
  EXPECT_EQ(daemon.countInLog("The Diagnostics Collector Service is starting threadpool"), 1u);
  EXPECT_EQ(daemon.countInLog("The Diagnostics Collector Service is exited"), 1u);
}

}  // namespace
