// How the service behaves when its surroundings fail: statsd, a second service, files that are not what they
// should be, a driver that hangs.

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "fixture/Daemon.h"

namespace {

namespace fs = std::filesystem;
using fixture::Daemon;
using fixture::Process;
using fixture::ProcessOptions;
using fixture::staged;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

bool aborted(int status) {
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
}

void expectNoFeed(const std::string& log) {
  for (const char* text : {"Failed to publish configuration to statsd due to FailedToReachService",
                           "Failed to create stats manager", "Failed to create state manager"}) {
    EXPECT_NE(log.find(text), std::string::npos) << text << " in:\n" << log;
  }
}

TEST(FaultsTest, noStartWithoutTheStatsdFeed) {
  Daemon daemon;
  daemon.dir().write("runtime/statsdw/in-the-way", "");  // a directory takes the socket's place
  daemon.launch();
  EXPECT_TRUE(aborted(daemon.process().wait().value_or(0)));
  expectNoFeed(daemon.log());
}

// TORV_START_ROUNDS=200 looks longer. In the last round the first one serves already; in the others the gap
// between the two starts goes from 0 to 8 ms.
TEST(FaultsTest, ofTwoServicesOneServesUndisturbedAndTheOtherEnds) {
  const char* wanted = getenv("TORV_START_ROUNDS");
  const int rounds = wanted != nullptr ? std::stoi(wanted) : 10;
  for (int round = 1; round <= rounds; ++round) {
    Daemon daemon;
    ProcessOptions options;
    std::vector<std::unique_ptr<Process>> services;
    for (const char* log : {"first.log", "second.log"}) {
      options.output = daemon.dir().path(log);
      services.push_back(
          std::make_unique<Process>(std::vector{staged("diagnostics_collector_service")}, options));
      std::this_thread::sleep_for(milliseconds(round % 9));
      ASSERT_TRUE(round < rounds || fixture::eventually(&Daemon::answers));
    }
    const auto running = [&] { return services[0]->running() + services[1]->running(); };
    ASSERT_TRUE(fixture::eventually([&] { return running() < 2; })) << "both run, in round " << round;
    ASSERT_TRUE(fixture::eventually([&] { return running() == 0 || Daemon::answers(); }))
        << "round " << round;
    ASSERT_EQ(running(), 1) << "round " << round << test::readFile(daemon.dir().path("first.log"))
                            << test::readFile(daemon.dir().path("second.log"));
    const bool firstServes = services[0]->running();
    EXPECT_TRUE(firstServes || round < rounds);
    EXPECT_TRUE(aborted(services[firstServes ? 1 : 0]->wait().value_or(0)));
    expectNoFeed(test::readFile(daemon.dir().path(firstServes ? "second.log" : "first.log")));
    EXPECT_TRUE(fixture::publish(getpid(), "after", "heard"));
    EXPECT_EQ(Daemon::statesOf(getpid())["after"], "heard") << "round " << round;
  }
}

TEST(FaultsTest, aServiceWhosePoolIsStoppedEndsInGoodOrder) {
  Daemon daemon;
  daemon.start(staged("stoppable_service"));
  EXPECT_EQ(daemon.stop(SIGTERM), 0);
  EXPECT_EQ(daemon.countInLog("The Diagnostics Collector Service is starting threadpool"), 1u);
  EXPECT_EQ(daemon.countInLog("The Diagnostics Collector Service is exited"), 1u);
}

TEST(FaultsTest, aTableTooLargeForAReplyComesWithoutTheStatesOfItsLargestProcesses) {
  constexpr int kFirstPid = 1'000'000'000;  // no such processes, which nobody notices within the first 30 s
  Daemon daemon;
  daemon.start();
  // 2 MB as a reply. A reply takes 0.75 MiB.
  for (int i = 0; i < 300; ++i) ASSERT_TRUE(fixture::publish(kFirstPid + i, "key", std::string(3000, 'x')));
  ASSERT_TRUE(fixture::publish(getpid(), "screen", "home"));
  const Json::Value all = Daemon::askAll();
  EXPECT_EQ(all.size(), 301u);
  EXPECT_EQ(all[std::to_string(getpid())]["ApplicationStateData"]["screen"], "home");
  EXPECT_EQ(daemon.countInLog("processes did not fit into a reply"), 1u) << daemon.log();
}

TEST(FaultsTest, aTelemetryLogThatCannotBeWrittenCostsNoAnswer) {
  Daemon daemon;
  daemon.dir().write("runtime/telemetry.jsonl/in-the-way", "");
  daemon.start();
  EXPECT_TRUE(Daemon::askAll().empty());
  EXPECT_TRUE(daemon.logs("DiagnosticsCollectorTelemetry: Failed to log diagnostics collector report event!"))
      << daemon.log();
}

pid_t threadOf(pid_t process, const std::string& name) {
  for (const auto& thread : fs::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
    if (test::readFile(thread.path() / "comm") == name + "\n") return std::stoi(thread.path().filename());
  }
  throw std::runtime_error("no thread " + name);
}

// Stops a thread at the entry of its next pread(), as a driver that hangs would. Returns false if the tester
// may not.
bool hangInRead(pid_t thread) {
  if (ptrace(PTRACE_SEIZE, thread, nullptr, PTRACE_O_TRACESYSGOOD) != 0) return false;
  ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr);
  for (int status = 0;;) {
    if (waitpid(thread, &status, __WALL) != thread || !WIFSTOPPED(status)) {
      throw std::runtime_error("the service has ended");
    }
    __ptrace_syscall_info call{};
    ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof(call), &call);
    if (call.op == PTRACE_SYSCALL_INFO_ENTRY && call.entry.nr == SYS_pread64) return true;
    ptrace(PTRACE_SYSCALL, thread, nullptr, nullptr);
  }
}

// How many histories a system context has.
long histories() {
  const Json::Value::Members keys = Daemon::askContext()["SystemContextData"].getMemberNames();
  return std::count_if(keys.begin(), keys.end(), [](const auto& key) { return key.ends_with("_history"); });
}

template <typename Call>
milliseconds timeOf(Call call) {
  const auto start = steady_clock::now();
  call();
  return std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
}

TEST(FaultsTest, aDriverThatHangsTakesTheHistoriesAndNothingElse) {
  Daemon daemon;
  daemon.start();
  const long usual = histories();
  ASSERT_GT(usual, 0);
  const pid_t poller = threadOf(daemon.process().pid(), "SystemStateColl");
  if (!hangInRead(poller)) GTEST_SKIP() << "the tester may not stop a thread of the service";
  std::vector<std::future<milliseconds>> callers;
  for (int i = 0; i < 20; ++i) {
    callers.push_back(std::async(std::launch::async, [] {
      return timeOf([] { fixture::actAs(fixture::applicationUid(), [] { EXPECT_EQ(histories(), 0); }); });
    }));
  }
  for (int i = 0; i < 100; ++i) {
    EXPECT_LT(timeOf(&Daemon::askAll), milliseconds(1500)) << "transaction 2 waits for the driver";
    std::this_thread::sleep_for(milliseconds(20));
  }
  int patient = 0;
  for (auto& caller : callers) {
    const milliseconds time = caller.get();
    EXPECT_LT(time, milliseconds(5000));
    if (time > milliseconds(1700)) ++patient;
  }
  EXPECT_LE(patient, 2);
  ptrace(PTRACE_DETACH, poller, nullptr, nullptr);
  EXPECT_TRUE(fixture::eventually([usual] { return histories() == usual; }));
  EXPECT_TRUE(daemon.logs(" system contexts went out without histories")) << daemon.log();
}

TEST(FaultsTest, whatIsNoRegularFileIsAMissingSource) {
  Daemon daemon;
  fs::remove(daemon.dir().path("device/proc"));
  daemon.dir().write("device/proc/meminfo", "MemTotal: 2 kB\nMemFree: 1 kB\nMemAvailable: 1 kB\n");
  ASSERT_EQ(symlink("/dev/zero", daemon.dir().path("device/proc/stat").c_str()), 0);
  const std::string gpu = daemon.dir().write("device/sys/class/kgsl/kgsl-3d0/gpubusy_accum", "");
  ASSERT_TRUE(fs::remove(gpu) && mkfifo(gpu.c_str(), 0666) == 0);
  daemon.dir().write("device/sys/class/power_supply/battery/charge_counter/directory", "");
  ASSERT_EQ(truncate(daemon.dir().write("device/proc/pressure/io", "").c_str(), off_t{1} << 30), 0);
  daemon.start();
  for (const char* line :
       {"Failed to open /proc/stat", "Failed to open /sys/class/kgsl/kgsl-3d0/gpubusy_accum",
        "Failed to open /sys/class/power_supply/battery/charge_counter", "Failed to create GpuCollector"}) {
    EXPECT_EQ(daemon.countInLog(line), 1u) << line;
  }
  EXPECT_TRUE(daemon.logs("Cannot read /proc/pressure/io, or it is larger than 131072 bytes"))
      << daemon.log();
  EXPECT_EQ(histories(), 2) << "memory, and the pressure whose text is too long";
}

TEST(FaultsTest, aPipeAsConfigurationEndsTheStartAtOnce) {
  Daemon daemon;
  const std::string path = daemon.dir().path("device/system_ext/etc/torv_crashreporter.conf");
  ASSERT_TRUE(fs::remove(path) && mkfifo(path.c_str(), 0666) == 0);
  daemon.launch();
  EXPECT_TRUE(aborted(daemon.process().wait().value_or(0)));
  EXPECT_EQ(daemon.countInLog("torv_crashreporter.conf is not a regular file"), 1u) << daemon.log();
  EXPECT_GT(
      daemon.countInLog("Unable to load service configuration: /system_ext/etc/torv_crashreporter.conf"), 0u);
}

}  // namespace
