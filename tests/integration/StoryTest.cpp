// The life of a report: applications publish, one dies, a reporter asks.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "base/Json.h"
#include "fixture/Daemon.h"
#include "timeline/Sources.h"

namespace {

using fixture::Daemon;
using fixture::Outcome;
using fixture::run;
using fixture::staged;

// What is wrong with the file by the documented schema; empty if nothing is.
std::string schemaFault(const std::string& path) {
  const Outcome check = run(
      {"/usr/bin/python3", "-W", "ignore", "-m", "jsonschema", "-i", path, REPORT_SCHEMA}, {getuid(), {}});
  return check.exitCode() == 0 ? check.output
                               : "exit code " + std::to_string(check.exitCode()) + check.output;
}

TEST(StoryTest, aReporterLearnsWhatADeadApplicationWasDoing) {
  Daemon daemon;
  daemon.start();

  fixture::ProcessOptions application = daemon.client(fixture::applicationUid());
  application.output = daemon.dir().path("application.log");
  const test::ScopedEnv asan("ASAN_OPTIONS", "handle_segv=0"), tsan("TSAN_OPTIONS", "handle_segv=0");
  fixture::Process crashing({staged("crash_story_app"), "--seconds", "1"}, application);
  const int status = crashing.wait().value_or(0);
  ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV) << status;
  const std::string pid = std::to_string(crashing.pid());
  EXPECT_EQ(test::readFile(application.output).rfind("  process " + pid + "\n", 0), 0);

  daemon.dir().write("report/.keep", "");
  ASSERT_EQ(chown(daemon.dir().path("report").c_str(), fixture::reporterUid(), getgid()), 0);
  const std::string path = daemon.dir().path("report/report.json");
  const Outcome reporter = run({staged("crash_reporter"), "--pid", pid, "--signal", "11", "--program",
                                "crash_story_app", "--out", path},
                               daemon.client(fixture::reporterUid()));
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
  EXPECT_FALSE(report["system"]["SystemContextData"]["cpu_utilization_history"]["time_series"].empty());

  const auto timeline = timeline::fromFile(path);
  ASSERT_TRUE(timeline.ok()) << timeline.error();
  ASSERT_EQ(timeline->deaths.size(), 1);
  EXPECT_EQ(timeline->deaths[0].signal, SIGSEGV);
  EXPECT_EQ(timeline->names.at(crashing.pid()), "crash_story_app");

  // The report has the documented form, and the schema is one that can be broken.
  EXPECT_EQ(schemaFault(path), "");
  for (const char* const member : {"format", "asked", "process", "system"}) {
    Json::Value damaged = report;
    damaged[member] = "something else";
    EXPECT_NE(schemaFault(daemon.dir().write("damaged.json", damaged.toStyledString())), "") << member;
  }
}

TEST(StoryTest, theDocumentsPublishersAndItsClientWork) {
  Daemon daemon;
  daemon.start();
  for (const char* const program : {"documented_publisher", "documented_c_publisher"}) {
    const fixture::Process publisher({staged(program)}, daemon.client(fixture::applicationUid()));
    Outcome client;
    EXPECT_TRUE(fixture::eventually([&] {
      client = run({staged("documented_client"), std::to_string(publisher.pid())},
                   daemon.client(fixture::reporterUid()));
      return client.exitCode() == 0;
    })) << program;
    EXPECT_NE(client.output.find("screen = settings"), std::string::npos) << client.output;
  }
}

}  // namespace
