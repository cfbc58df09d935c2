// What goes wrong around the service, and what it does then.

#include <filesystem>
#include <string>

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <gtest/gtest.h>
#include <statsd/StatsEventWriter.h>

#include "fixture/Daemon.h"

namespace {

namespace fs = std::filesystem;
using android::String16;
using android::os::PersistableBundle;
using fixture::Daemon;
using fixture::Process;
using fixture::ProcessOptions;
using fixture::staged;
using libstatsd::StatsEventWriter;
using libstatsd::WriteResult;

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

// Starts the service where it cannot serve, and gives its log once it has ended.
std::string logOfAFailedStart(Daemon& daemon, const std::string& program) {
  daemon.launch(program);
  const int status = daemon.process().wait().value_or(0);
  EXPECT_TRUE(aborted(status)) << status << daemon.log();
  return daemon.log();
}

void expectNoFeed(const std::string& log, const std::string& reason) {
  for (const std::string& text : {reason, std::string("Failed to create stats manager"),
                                  std::string("Failed to create state manager")}) {
    EXPECT_NE(log.find(text), std::string::npos) << text << " in:\n" << log;
  }
}

TEST(FaultsTest, WithoutTheSdkModuleTheFirstReportEndsTheProcess) {
  Daemon daemon;
  const std::string alone = daemon.dir().path("alone");
  fs::create_directory(alone);
  fs::copy_file(staged("diagnostics_collector_service"), alone + "/service");
  // Looked for beside the program first; nothing there, nothing in the system's own folders.
  daemon.start(alone + "/service");
  PersistableBundle all;
  EXPECT_EQ(daemon.collector()->getAllAvailableApplicationStateData(&all).transactionError(),
            android::DEAD_OBJECT);
  EXPECT_TRUE(aborted(daemon.process().wait().value_or(0)));
  EXPECT_EQ(daemon.countInLog("OSSDK module 'libossdk.pellux.so' not found"), 1u) << daemon.log();
}

TEST(FaultsTest, NoStartWithoutTheStatsdFeed) {
  const std::string unreachable = "Failed to publish configuration to statsd due to FailedToReachService";
  const std::string program = staged("diagnostics_collector_service");
  {
    Daemon daemon;
    daemon.dir().write("runtime/statsdw/in-the-way", "");  // a directory where the socket is to be
    expectNoFeed(logOfAFailedStart(daemon, program), unreachable);
  }
  {
    Daemon daemon;
    fs::remove_all(daemon.dir().path("runtime"));
    daemon.dir().write("runtime", "");  // a file where the directory is to be
    expectNoFeed(logOfAFailedStart(daemon, program), unreachable);
  }
  if (getuid() != 0) return;
  Daemon daemon;
  ProcessOptions root;
  root.uid = 0;
  root.output = daemon.dir().path("root.log");
  Process process({program}, root);
  EXPECT_TRUE(aborted(process.wait().value_or(0)));
  expectNoFeed(test::readFile(root.output), "Failed to build stats manager with no uid");
}

TEST(FaultsTest, NoStartWithoutAConfigurationFile) {
  Daemon daemon;
  fs::remove(daemon.dir().path("device/system_ext/etc/torv_crashreporter.conf"));
  const std::string log = logOfAFailedStart(daemon, staged("diagnostics_collector_service"));
  EXPECT_NE(log.find("Unable to load service configuration: "), std::string::npos) << log;
}

TEST(FaultsTest, ASecondServiceLeavesTheFirstAlone) {
  Daemon daemon;
  daemon.start();
  ProcessOptions options;
  options.output = daemon.dir().path("second.log");
  Process second({staged("diagnostics_collector_service")}, options);
  EXPECT_TRUE(aborted(second.wait().value_or(0)));
  expectNoFeed(test::readFile(options.output),
               "Failed to publish configuration to statsd due to FailedToReachService");
  EXPECT_TRUE(fixture::publish(getpid(), "after", "heard"));
  EXPECT_EQ(statusOf(daemon, "after"), "heard");
}

TEST(FaultsTest, AServiceStartedAgainServesOldClientsAndPublishers) {
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

TEST(FaultsTest, ATelemetryLogThatCannotBeWrittenCostsNoAnswer) {
  Daemon daemon;
  daemon.dir().write("runtime/telemetry.jsonl/in-the-way", "");
  daemon.start();
  PersistableBundle all;
  EXPECT_TRUE(daemon.collector()->getAllAvailableApplicationStateData(&all).isOk());
  EXPECT_TRUE(daemon.logs("DiagnosticsCollectorTelemetry: Failed to log diagnostics collector report event!"))
      << daemon.log();
}

TEST(FaultsTest, ClientsOfAStoppedServiceGiveUpInTime) {
  Daemon daemon;
  daemon.start();
  daemon.process().signal(SIGSTOP);
  for (const auto& command : std::vector<std::vector<std::string>>{
           {staged("diagctl"), "--timeout", "0.2", "ping"},
           {staged("diagctl"), "states", "--json", "--timeout", "0.2"},
           {staged("crash_reporter"), "--pid", "1", "--out", "/dev/null", "--timeout", "0.2"}}) {
    const fixture::Outcome outcome = fixture::run(command, daemon.client());
    EXPECT_EQ(outcome.exitCode(), 1) << command[1];
    EXPECT_NE(outcome.output.find("did not answer within 0.2 s"), std::string::npos) << outcome.output;
  }
  daemon.process().signal(SIGCONT);
  EXPECT_EQ(fixture::run({staged("diagctl"), "--timeout", "50", "ping"}, daemon.client()).exitCode(), 0);
}

constexpr int kFirstPid = 1'000'000'000;  // no such processes; nobody looks for them within the first 30 s
constexpr int kProcesses = 2000;

// 2,000 processes of 20 keys: about 2.7 MB as an answer, where 1 MiB less 8 KiB is carried.
void publishTooMuch(const Daemon& daemon) {
  StatsEventWriter writer;
  for (int pid = kFirstPid; pid < kFirstPid + kProcesses; ++pid) {
    for (int key = 0; key < 20; ++key) {
      // A service that a sanitizer slows down may leave its queue full for longer than the writer waits.
      WriteResult result = WriteResult::Lost;
      for (int tries = 0; tries < 100 && result == WriteResult::Lost; ++tries) {
        result = writer.publishApplicationState(pid, "key number " + std::to_string(key), "some value");
      }
      ASSERT_EQ(result, WriteResult::Sent);
    }
    // Lets the service take in what statsd holds for it, which is bounded.
    PersistableBundle one;
    if (pid % 100 == 0) daemon.collector()->getApplicationStateDataForProcess(pid, String16(), &one);
  }
}

TEST(FaultsTest, AnAnswerTooLargeFailsThatCallAlone) {
  Daemon daemon;
  daemon.start();
  const auto collector = daemon.collector();
  fixture::actAs(fixture::applicationUid(), [&] { publishTooMuch(daemon); });
  for (int i = 0; i < 2; ++i) {
    PersistableBundle all;
    EXPECT_EQ(collector->getAllAvailableApplicationStateData(&all).transactionError(),
              android::FAILED_TRANSACTION);
    PersistableBundle last;
    EXPECT_TRUE(
        collector->getApplicationStateDataForProcess(kFirstPid + kProcesses - 1, String16(), &last).isOk());
    EXPECT_FALSE(last.empty());
  }
  const fixture::Outcome told = fixture::run({staged("diagctl"), "states"}, daemon.client());
  EXPECT_EQ(told.exitCode(), 1);
  EXPECT_NE(told.output.find("does not fit"), std::string::npos) << told.output;
  EXPECT_EQ(daemon.countInLog("over the limit"), 3u) << "a line for each";
}

// What a tester's checkout, or root's, may be: a directory that the service's uid cannot enter.
TEST(FaultsTest, TheServiceRunsFromACheckoutThatOnlyItsOwnerCanEnter) {
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
