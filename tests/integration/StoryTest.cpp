// The life of a report: applications publish, one dies, a reporter asks.

#include <string>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <json/value.h>

#include "base/Json.h"
#include "fixture/Daemon.h"

namespace {

using fixture::Daemon;
using fixture::Outcome;
using fixture::run;
using fixture::staged;

TEST(StoryTest, aReporterLearnsWhatADeadApplicationWasDoing) {
  Daemon daemon;
  daemon.start();

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

  const auto parsed = Torv::Base::parseJson(test::readFile(path), Torv::Base::JsonRules::Strict);
  ASSERT_TRUE(parsed.ok()) << parsed.error();
  const Json::Value& report = *parsed;
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

TEST(StoryTest, theDocumentsClientWorks) {
  Daemon daemon;
  daemon.start();
  ASSERT_TRUE(fixture::publish(getpid(), "screen", "settings"));
  const Outcome client =
      run({staged("documented_client"), std::to_string(getpid())}, daemon.client(fixture::reporterUid()));
  EXPECT_EQ(client.exitCode(), 0);
  EXPECT_NE(client.output.find("screen = settings"), std::string::npos) << client.output;
}

}  // namespace
