// What diagctl prints and how it exits, over the real service.

#include <string>
#include <vector>

#include <android-base/strings.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>

#include "base/Json.h"
#include "fixture/Daemon.h"

namespace {

using fixture::Daemon;
using fixture::Outcome;
using fixture::publish;
using fixture::staged;
using testing::HasSubstr;

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
    const auto value = Torv::Base::parseJson(outcome.output, Torv::Base::JsonRules::Strict);
    EXPECT_TRUE(value.ok()) << outcome.output;
    return value.ok() ? *value : Json::Value();
  }

  Daemon daemon;
};

TEST_F(CommandLineTest, StatesAreTablesForPeopleAndJsonForPrograms) {
  daemon.start();
  EXPECT_TRUE(publish(70, "screen", "home") && publish(70, "last_action", "tap"));
  EXPECT_TRUE(publish(9, "number", "42") && publish(9, "object", "{\"a\": [1, 2]}"));
  EXPECT_TRUE(publish(9, "almost", "{\"a\": 1} and more"));
  EXPECT_EQ(diagctl({"state", "70"}).output, "process 70\n  last_action  tap\n  screen       home\n");
  EXPECT_THAT(diagctl({"states"}).output, HasSubstr("process 70\n  last_action  tap\n"));

  const Json::Value all = json({"states"});
  EXPECT_EQ(all["70"], json({"state", "70"}));
  EXPECT_EQ(all["70"]["processId"].asInt(), 70);
  EXPECT_EQ(all["70"]["ApplicationStateData"]["screen"].asString(), "home");
  // Values that are JSON documents are nested, and nothing else is.
  const Json::Value states = all["9"]["ApplicationStateData"];
  EXPECT_EQ(states["object"]["a"][1].asInt(), 2);
  EXPECT_EQ(states["number"].asString(), "42");
  EXPECT_EQ(states["almost"].asString(), "{\"a\": 1} and more");
}

TEST_F(CommandLineTest, WhatApplicationsPublishCannotDriveTheTerminal) {
  daemon.start();
  EXPECT_TRUE(publish(5, "title\x1b]0;x\x07", "a\nb\x1b[2J\u202ec\u009bd"));
  EXPECT_EQ(diagctl({"state", "5"}).output,
            "process 5\n  title\\x1b]0;x\\x07  a\\nb\\x1b[2J\\u202ec\\x9bd\n");
}

TEST_F(CommandLineTest, ContextShowsHistoriesAsCharts) {
  daemon.start();
  ASSERT_TRUE(fixture::eventually([&] {
    const Json::Value values = json({"context"})["SystemContextData"];
    return values["cpu_utilization_history"]["time_series"].size() > 1;
  }));
  const std::string context = diagctl({"context"}).output;
  EXPECT_THAT(context,
              AllOf(HasSubstr("build_fingerprint"), HasSubstr("\nsystem_meminfo_history, 0 to 100 %\n")));
  EXPECT_THAT(context, AllOf(HasSubstr("now "), Not(HasSubstr("time_series"))));
}

TEST_F(CommandLineTest, PingAndNotifySayWhatHappened) {
  daemon.start();
  EXPECT_TRUE(json({"ping"})["DiagnosticsNotificationService"]["round_trip_us"].isIntegral());
  EXPECT_EQ(json({"notify", "1"})["sent"].asInt(), 1);
  EXPECT_EQ(diagctl({"notify", "-2"}).exitCode(), 0);
  EXPECT_TRUE(daemon.logs("Unexpected system event: -2"));
}

TEST_F(CommandLineTest, ExitCodesTellRefusalFromWrongUsage) {
  const Outcome nobody = diagctl({"ping"});
  EXPECT_EQ(nobody.exitCode(), 1);
  EXPECT_THAT(nobody.output, HasSubstr("is not running in " + daemon.runtime().substr(0, 10)));
  daemon.start();
  const Outcome unknown = diagctl({"state", "123456"});
  EXPECT_EQ(unknown.exitCode(), 1);
  EXPECT_THAT(unknown.output, HasSubstr("Nothing is known of process 123456"));
  for (const std::string wrong : {"state", "states x", "notify 99999999999", "ping --timeout -1"}) {
    EXPECT_EQ(diagctl(android::base::Split(wrong, " ")).exitCode(), 2) << wrong;
  }
}

}  // namespace
