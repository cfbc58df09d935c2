// What diagctl prints and how it exits, over the real service.

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <json/value.h>

#include "fixture/Daemon.h"
#include "os/Json.h"

namespace {

using fixture::Daemon;
using fixture::Outcome;
using fixture::staged;

class CommandLineTest : public testing::Test {
 protected:
  Outcome diagctl(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), staged("diagctl"));
    return fixture::run(arguments, daemon.client(fixture::serviceUid()));
  }

  Json::Value json(std::vector<std::string> arguments) {
    arguments.push_back("--json");
    const Outcome outcome = diagctl(arguments);
    EXPECT_EQ(outcome.exitCode(), 0) << outcome.output;
    std::string error;
    const auto value = Torv::OS::parseJson(outcome.output, error, Torv::OS::JsonRules::Strict);
    EXPECT_TRUE(value) << error << "\n" << outcome.output;
    return value.value_or(Json::Value());
  }

  void publish(int pid, const std::string& key, const std::string& value) {
    EXPECT_TRUE(fixture::publish(pid, key, value));
  }

  Daemon daemon;
};

TEST_F(CommandLineTest, StatesAreTablesForPeopleAndJsonForPrograms) {
  daemon.start();
  publish(70, "screen", "home");
  publish(70, "last_action", "tap");
  publish(9, "screen", "login");
  EXPECT_EQ(diagctl({"state", "70"}).output, "process 70\n  last_action  tap\n  screen       home\n");
  EXPECT_EQ(diagctl({"states"}).output,
            "process 9\n  screen  login\nprocess 70\n  last_action  tap\n  screen       home\n");

  const Json::Value one = json({"state", "70"});
  EXPECT_EQ(one["processId"].asInt(), 70);
  EXPECT_EQ(one["ApplicationStateData"]["screen"].asString(), "home");
  const Json::Value all = json({"states"});
  EXPECT_EQ(all.size(), 2u);
  EXPECT_EQ(all["70"], one);
}

TEST_F(CommandLineTest, ValuesThatAreJsonAreNestedAndNothingElseIs) {
  daemon.start();
  publish(5, "object", "{\"a\": [1, 2]}");
  publish(5, "array", " [true]");
  publish(5, "number", "42");
  publish(5, "almost", "{\"a\": 1} and more");
  publish(5, "cut", "{\"a\": ");
  const Json::Value states = json({"state", "5"})["ApplicationStateData"];
  EXPECT_EQ(states["object"]["a"][1].asInt(), 2);
  EXPECT_EQ(states["array"][0].asBool(), true);
  EXPECT_EQ(states["number"].asString(), "42");
  EXPECT_EQ(states["almost"].asString(), "{\"a\": 1} and more");
  EXPECT_EQ(states["cut"].asString(), "{\"a\": ");
}

TEST_F(CommandLineTest, WhatApplicationsPublishCannotDriveTheTerminal) {
  daemon.start();
  publish(5, "title\x1b]0;x\x07", "a\nb\x1b[2J\u202ec\u009bd");
  EXPECT_EQ(diagctl({"state", "5"}).output,
            "process 5\n  title\\x1b]0;x\\x07  a\\nb\\x1b[2J\\u202ec\\x9bd\n");
}

TEST_F(CommandLineTest, ContextShowsHistoriesAsCharts) {
  daemon.start();
  ASSERT_TRUE(fixture::eventually([&] {
    const Json::Value values = json({"context"})["SystemContextData"];
    return values["cpu_utilization_history"]["time_series"].size() > 1;
  }));
  const Outcome context = diagctl({"context"});
  EXPECT_EQ(context.exitCode(), 0);
  EXPECT_NE(context.output.find("build_fingerprint"), std::string::npos);
  EXPECT_NE(context.output.find("\nsystem_meminfo_history\n"), std::string::npos) << context.output;
  EXPECT_NE(context.output.find("newest"), std::string::npos);
  EXPECT_EQ(context.output.find("time_series"), std::string::npos);
}

TEST_F(CommandLineTest, PingAndNotifySayWhatHappened) {
  daemon.start();
  EXPECT_TRUE(json({"ping"})["DiagnosticsNotificationService"]["round_trip_us"].isIntegral());
  EXPECT_EQ(json({"notify", "1"})["sent"].asInt(), 1);
  EXPECT_EQ(diagctl({"notify", "-2"}).exitCode(), 0);
  EXPECT_TRUE(daemon.logs("Unexpected system event: -2"));
}

TEST_F(CommandLineTest, ExitCodesTellRefusalFromWrongUsage) {
  for (const auto& command : std::vector<std::vector<std::string>>{
           {"ping"}, {"states"}, {"state", "1"}, {"context"}, {"notify", "0"}}) {
    const Outcome outcome = diagctl(command);
    EXPECT_EQ(outcome.exitCode(), 1) << command[0];
    EXPECT_NE(outcome.output.find("is not running in " + daemon.runtime().substr(0, 10)), std::string::npos)
        << outcome.output;
  }
  daemon.start();
  const Outcome unknown = diagctl({"state", "123456"});
  EXPECT_EQ(unknown.exitCode(), 1);
  EXPECT_NE(unknown.output.find("Nothing is known of process 123456"), std::string::npos) << unknown.output;
  for (const auto& command : std::vector<std::vector<std::string>>{{},
                                                                   {"state"},
                                                                   {"state", "x"},
                                                                   {"notify", "99999999999"},
                                                                   {"ping", "--timeout", "-1"},
                                                                   {"frobnicate"}}) {
    EXPECT_EQ(diagctl(command).exitCode(), 2) << (command.empty() ? "" : command[0]);
  }
}

}  // namespace
