// How the service behaves when its surroundings fail.

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "fixture/Daemon.h"

namespace {

namespace fs = std::filesystem;
using android::String16;
using android::os::PersistableBundle;
using fixture::Daemon;
using fixture::Process;
using fixture::ProcessOptions;
using fixture::staged;

std::string statusOf(const Daemon& daemon, const std::string& key) {
  PersistableBundle process;
  PersistableBundle states;
  String16 value;
  const auto status = daemon.collector()->getApplicationStateDataForProcess(getpid(), String16(), &process);
  EXPECT_TRUE(status.isOk()) << status.toString8();
  process.getPersistableBundle(String16("ApplicationStateData"), &states);
  states.getString(String16(key.c_str()), &value);
  return android::String8(value).string();
}

bool aborted(int status) {
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
}

void expectNoFeed(const std::string& log) {
  for (const char* text : {"Failed to publish configuration to statsd due to FailedToReachService",
                           "Failed to create stats manager", "Failed to create state manager"}) {
    EXPECT_NE(log.find(text), std::string::npos) << text << " in:\n" << log;
  }
}

TEST(FaultsTest, withoutTheSdkModuleTheFirstReportEndsTheProcess) {
  Daemon daemon;
  const std::string alone = daemon.dir().path("alone");
  fs::create_directory(alone);
  fs::copy_file(staged("diagnostics_collector_service"), alone + "/service");
  // The loader looks beside the program and in the system's folders. The module is in neither.
  daemon.start(alone + "/service");
  PersistableBundle all;
  EXPECT_EQ(daemon.collector()->getAllAvailableApplicationStateData(&all).transactionError(),
            android::DEAD_OBJECT);
  EXPECT_TRUE(aborted(daemon.process().wait().value_or(0)));
  EXPECT_EQ(daemon.countInLog("OSSDK module 'libossdk.pellux.so' not found"), 1u) << daemon.log();
}

TEST(FaultsTest, noStartWithoutTheStatsdFeed) {
  Daemon daemon;
  daemon.dir().write("runtime/statsdw/in-the-way", "");  // a directory takes the socket's place
  daemon.launch();
  EXPECT_TRUE(aborted(daemon.process().wait().value_or(0)));
  expectNoFeed(daemon.log());
}

TEST(FaultsTest, aSecondServiceLeavesTheFirstAlone) {
  Daemon daemon;
  daemon.start();
  ProcessOptions options;
  options.output = daemon.dir().path("second.log");
  Process second({staged("diagnostics_collector_service")}, options);
  EXPECT_TRUE(aborted(second.wait().value_or(0)));
  expectNoFeed(test::readFile(options.output));
  EXPECT_TRUE(fixture::publish(getpid(), "after", "heard"));
  EXPECT_EQ(statusOf(daemon, "after"), "heard");
}

// TORV_START_ROUNDS=200 looks longer. The gap between the two starts goes from 0 to 8 ms.
TEST(FaultsTest, ofTwoServicesStartedAtOnceOneServesAndTheOtherEnds) {
  const char* wanted = getenv("TORV_START_ROUNDS");
  const int rounds = wanted != nullptr ? std::stoi(wanted) : 9;
  for (int round = 0; round < rounds; ++round) {
    Daemon daemon;
    ProcessOptions options;
    std::vector<std::unique_ptr<Process>> services;
    for (const char* log : {"first.log", "second.log"}) {
      options.output = daemon.dir().path(log);
      const std::vector<std::string> program{staged("diagnostics_collector_service")};
      services.push_back(std::make_unique<Process>(program, options));
      std::this_thread::sleep_for(std::chrono::milliseconds(round % 9));
    }
    const auto running = [&] { return services[0]->running() + services[1]->running(); };
    ASSERT_TRUE(fixture::eventually([&] { return running() < 2; })) << "both run, in round " << round;
    ASSERT_TRUE(fixture::eventually([&] { return running() == 0 || Daemon::answers(); }))
        << "round " << round;
    ASSERT_EQ(running(), 1) << "round " << round << test::readFile(daemon.dir().path("first.log"))
                            << test::readFile(daemon.dir().path("second.log"));
    const bool firstServes = services[0]->running();
    EXPECT_TRUE(aborted(services[firstServes ? 1 : 0]->wait().value_or(0)));
    expectNoFeed(test::readFile(daemon.dir().path(firstServes ? "second.log" : "first.log")));
    EXPECT_TRUE(fixture::publish(getpid(), "after", "heard"));
    EXPECT_EQ(statusOf(daemon, "after"), "heard") << "round " << round;
  }
}

TEST(FaultsTest, aServiceStartedAgainServesOldClientsAndPublishers) {
  Daemon daemon;
  daemon.start();
  EXPECT_TRUE(fixture::publish(getpid(), "life", "first"));
  EXPECT_EQ(statusOf(daemon, "life"), "first");
  const auto collector = daemon.collector();
  daemon.stop(SIGKILL);
  PersistableBundle all;
  EXPECT_EQ(collector->getAllAvailableApplicationStateData(&all).transactionError(), android::DEAD_OBJECT);
  EXPECT_EQ(Daemon::binder(fixture::IDiagnosticsCollectorService::kServiceName), nullptr);

  daemon.start();
  EXPECT_TRUE(fixture::publish(getpid(), "life", "second"));
  EXPECT_EQ(statusOf(daemon, "life"), "second");
}

TEST(FaultsTest, aTelemetryLogThatCannotBeWrittenCostsNoAnswer) {
  Daemon daemon;
  daemon.dir().write("runtime/telemetry.jsonl/in-the-way", "");
  daemon.start();
  PersistableBundle all;
  EXPECT_TRUE(daemon.collector()->getAllAvailableApplicationStateData(&all).isOk());
  EXPECT_TRUE(daemon.logs("DiagnosticsCollectorTelemetry: Failed to log diagnostics collector report event!"))
      << daemon.log();
}

TEST(FaultsTest, clientsOfAStoppedServiceGiveUpInTime) {
  Daemon daemon;
  daemon.start();
  daemon.process().signal(SIGSTOP);
  for (const auto& command : std::vector<std::vector<std::string>>{
           {staged("diagctl"), "--timeout", "0.2", "ping"},
           {staged("crash_reporter"), "--pid", "1", "--out", "/dev/null", "--timeout", "0.2"}}) {
    const fixture::Outcome outcome = fixture::run(command, daemon.client());
    EXPECT_EQ(outcome.exitCode(), 1) << command[1];
    EXPECT_NE(outcome.output.find("did not answer within 0.2 s"), std::string::npos) << outcome.output;
  }
  daemon.process().signal(SIGCONT);
  EXPECT_EQ(fixture::run({staged("diagctl"), "--timeout", "50", "ping"}, daemon.client()).exitCode(), 0);
}

TEST(FaultsTest, aTableTooLargeForAReplyComesWithoutTheStatesOfItsLargestProcesses) {
  constexpr int kFirstPid = 1'000'000'000;  // no such processes, which nobody notices within the first 30 s
  Daemon daemon;
  daemon.start();
  // 2 MB as a reply. A reply takes 0.75 MiB.
  for (int i = 0; i < 300; ++i) ASSERT_TRUE(fixture::publish(kFirstPid + i, "key", std::string(3000, 'x')));
  ASSERT_TRUE(fixture::publish(getpid(), "screen", "home"));
  PersistableBundle all;
  ASSERT_TRUE(daemon.collector()->getAllAvailableApplicationStateData(&all).isOk());
  EXPECT_EQ(all.size(), 301u);
  EXPECT_EQ(statusOf(daemon, "screen"), "home");
  EXPECT_EQ(daemon.countInLog("processes did not fit into a reply"), 1u) << daemon.log();
}

// Root's checkout can be a directory that the service's uid cannot enter.
TEST(FaultsTest, theServiceRunsFromACheckoutThatOnlyItsOwnerCanEnter) {
  Daemon daemon;
  const std::string checkout = daemon.dir().path("checkout");
  fs::create_directory(checkout);
  fs::copy_file(fixture::buildDirectory() + "/diagnostics_collector_service", checkout + "/service");
  chmod(checkout.c_str(), 0700);
  if (getuid() == 0) {
    daemon.launch(checkout + "/service");
    EXPECT_EQ(WEXITSTATUS(daemon.process().wait().value_or(0)), 127) << "it cannot be run from there";
  }
  daemon.start();
}

}  // namespace
