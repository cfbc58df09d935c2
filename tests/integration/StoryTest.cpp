// The life of a report: applications publish, one dies, a reporter asks.

#include <string>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <json/value.h>
#include <statsd/StatsEventWriter.h>

#include "fixture/Daemon.h"
#include "os/Json.h"

namespace {

using android::String16;
using android::os::PersistableBundle;
using fixture::Daemon;
using fixture::eventually;
using fixture::Outcome;
using fixture::run;
using fixture::staged;

Json::Value parsed(const std::string& text) {
  std::string error;
  const auto value = Torv::OS::parseJson(text, error, Torv::OS::JsonRules::Strict);
  EXPECT_TRUE(value) << error << "\n" << text;
  return value.value_or(Json::Value());
}

TEST(StoryTest, AReporterLearnsWhatADeadApplicationWasDoing) {
  Daemon daemon;
  daemon.start();
  ASSERT_TRUE(eventually([&] { return daemon.log().find("starting threadpool") != std::string::npos; }));

  fixture::ProcessOptions application = daemon.client(fixture::applicationUid());
  application.output = daemon.dir().path("application.log");
  for (const char* sanitizer : {"ASAN_OPTIONS", "TSAN_OPTIONS"}) {
    application.environment[sanitizer] = "handle_segv=0";
  }
  fixture::Process crashing({staged("crash_story_app"), "--seconds", "1"}, application);
  const int status = crashing.wait().value_or(0);
  ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV) << status;
  const std::string pid = std::to_string(crashing.pid());
  EXPECT_EQ(test::readFile(application.output).substr(0, pid.size() + 1), pid + "\n");

  daemon.dir().write("report/.keep", "");
  ASSERT_EQ(chown(daemon.dir().path("report").c_str(), fixture::reporterUid(), getgid()), 0);
  const std::string path = daemon.dir().path("report/report.json");
  const Outcome reporter =
      run({staged("crash_reporter"), "--pid", pid, "--out", path}, daemon.client(fixture::reporterUid()));
  ASSERT_EQ(reporter.exitCode(), 0) << reporter.output;
  EXPECT_NE(reporter.output.find("sharing picture 214"), std::string::npos) << reporter.output;

  const Json::Value report = parsed(test::readFile(path));
  const Json::Value& states = report["process"]["ApplicationStateData"];
  EXPECT_EQ(report["process"]["processId"].asInt(), crashing.pid());
  EXPECT_EQ(states["screen"].asString(), "editor");
  EXPECT_EQ(states["last_action"].asString(), "sharing picture 214");
  EXPECT_GT(std::stol(states["memory_kib"].asString()), 8192);
  EXPECT_EQ(report["all_processes"][pid], report["process"]);
  const Json::Value& context = report["system"]["SystemContextData"];
  for (const char* history : {"cpu_utilization_history", "system_meminfo_history"}) {
    EXPECT_FALSE(context[history]["time_series"].empty()) << history;
  }
}

TEST(StoryTest, SessionIdsBelongToTheSystemAndCarryTheirAge) {
  Daemon daemon;
  daemon.setProperties("ro.build.fingerprint=torv/host:12\n");
  daemon.start();
  fixture::actAs(fixture::applicationUid(), [] {
    EXPECT_EQ(libstatsd::StatsEventWriter().publishTelemetrySession("service-1", "user-1"),
              libstatsd::WriteResult::Sent);
  });
  const Outcome context = run({staged("diagctl"), "context", "--json"}, daemon.client());
  ASSERT_EQ(context.exitCode(), 0) << context.output;
  const Json::Value reply = parsed(context.output);
  const Json::Value& session = reply["GlobalStateData"]["telemetry"]["GlobalStateData"]["service_session_id"];
  EXPECT_EQ(session["v"].asString(), "service-1");
  EXPECT_LT(session["dt_ms"].asInt64(), 60'000);
  // With correlation off there are no histories.
  const Json::Value& values = reply["SystemContextData"];
  EXPECT_EQ(values.size(), 2u) << values.toStyledString();
  EXPECT_EQ(values["build_fingerprint"].asString(), "torv/host:12");
  EXPECT_EQ(daemon.countInLog("System state collector manager disabled via ADC"), 1u);
}

TEST(StoryTest, PropertiesAndLatePublishersAreSeenAtTheNextCall) {
  Daemon daemon;
  daemon.start();
  for (int i = 0; i < 100; ++i) {
    const std::string value = std::to_string(i);
    ASSERT_TRUE(fixture::publish(getpid(), "step", value));
    PersistableBundle process;
    PersistableBundle states;
    ASSERT_TRUE(
        daemon.collector()->getApplicationStateDataForProcess(getpid(), String16("test"), &process).isOk());
    process.getPersistableBundle(String16("ApplicationStateData"), &states);
    String16 answer;
    states.getString(String16("step"), &answer);
    ASSERT_EQ(answer, String16(value.c_str())) << "what was published before a call must be in its answer";
  }
}

TEST(StoryTest, TheDocumentsClientWorks) {
  Daemon daemon;
  daemon.start();
  ASSERT_TRUE(fixture::publish(getpid(), "screen", "settings"));
  const Outcome client =
      run({staged("documented_client"), std::to_string(getpid())}, daemon.client(fixture::reporterUid()));
  EXPECT_EQ(client.exitCode(), 0);
  EXPECT_NE(client.output.find("screen = settings"), std::string::npos) << client.output;
}

// The order in which the service starts and ends, and that it ends clean: under AddressSanitizer the exit
// code says whether anything leaked.
TEST(StoryTest, ServesBetweenStartAndStopInGoodOrder) {
  Daemon daemon;
  daemon.start(staged("stoppable_service"));
  PersistableBundle all;
  EXPECT_TRUE(daemon.collector()->getAllAvailableApplicationStateData(&all).isOk());
  const int status = daemon.stop(SIGTERM);
  ASSERT_TRUE(WIFEXITED(status)) << status << daemon.log();
  EXPECT_EQ(WEXITSTATUS(status), 0) << daemon.log();
  const std::string log = daemon.log();
  const size_t starting = log.find("The Diagnostics Collector Service is starting threadpool");
  const size_t exited = log.find("The Diagnostics Collector Service is exited");
  ASSERT_NE(starting, std::string::npos);
  ASSERT_NE(exited, std::string::npos);
  EXPECT_LT(starting, exited);
}

}  // namespace
