// What diagctl prints and how it exits, over the real service.

#include <cstdlib>
#include <string>
#include <vector>

#include <signal.h>

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
using testing::StartsWith;

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

TEST_F(CommandLineTest, statesAreTablesForPeopleAndJsonForPrograms) {
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

TEST_F(CommandLineTest, whatApplicationsPublishCannotDriveTheTerminal) {
  daemon.start();
  EXPECT_TRUE(publish(5, "title\x1b]0;x\x07", "a\nb\x1b[2J\u202ec\u009bd"));
  EXPECT_EQ(diagctl({"state", "5"}).output,
            "process 5\n  title\\x1b]0;x\\x07  a\\nb\\x1b[2J\\u202ec\\x9bd\n");
}

TEST_F(CommandLineTest, contextShowsHistoriesAsCharts) {
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

TEST_F(CommandLineTest, pingAndNotifySayWhatHappened) {
  daemon.start();
  EXPECT_TRUE(json({"ping"})["DiagnosticsNotificationService"]["round_trip_us"].isIntegral());
  EXPECT_EQ(json({"notify", "1"})["sent"].asInt(), 1);
  EXPECT_EQ(diagctl({"notify", "-2"}).exitCode(), 0);
  EXPECT_TRUE(daemon.logs("Unexpected system event: -2"));
}

TEST_F(CommandLineTest, exitCodesTellRefusalFromWrongUsage) {
  const Outcome nobody = diagctl({"ping"});
  EXPECT_EQ(nobody.exitCode(), 1);
  EXPECT_THAT(nobody.output, HasSubstr("is not running in " + daemon.runtime().substr(0, 10)));
  daemon.start();
  const Outcome unknown = diagctl({"state", "123456"});
  EXPECT_EQ(unknown.exitCode(), 1);
  EXPECT_THAT(unknown.output, HasSubstr("Nothing is known of process 123456"));
  for (const std::string wrong :
       {"state", "states x", "notify 99999999999", "ping --timeout -1", "ping --timeout nan", "bogus",
        "pref bogus", "pref", "record -o /dev/null --every 1x"}) {
    const Outcome refused = diagctl(android::base::Split(wrong, " "));
    EXPECT_EQ(refused.exitCode(), 2) << wrong;
    EXPECT_THAT(refused.output, StartsWith("diagctl: ")) << wrong;
  }
  EXPECT_THAT(diagctl({"pref", "bogus"}).output, HasSubstr("there is no command 'pref bogus'"));
}

TEST_F(CommandLineTest, outputThatIsLostIsAnError) {
  daemon.start();
  for (const std::string command :
       {"states", "context --json", "status", "runtime-dir", "--help", "doctor"}) {
    for (const char* const nowhere : {" >/dev/full", " >&-"}) {
      const Outcome outcome =
          fixture::run({"/bin/sh", "-c", staged("diagctl") + " " + command + nowhere}, daemon.client());
      EXPECT_EQ(outcome.exitCode(), 1) << command << nowhere;
      EXPECT_THAT(outcome.output, HasSubstr("diagctl: the output could not be written"))
          << command << nowhere;
    }
  }
}

TEST_F(CommandLineTest, aStoppedServiceIsToldFromNone) {
  daemon.start();
  daemon.process().signal(SIGSTOP);
  for (const std::string command : {"status", "push a b", "ping", "states"}) {
    const Outcome outcome = diagctl(android::base::Split(command + " --timeout 0.2", " "));
    EXPECT_EQ(outcome.exitCode(), 1) << command;
    EXPECT_THAT(outcome.output, HasSubstr("did not answer within 0.2 s. It may be stopped")) << command;
  }
  EXPECT_THAT(diagctl({"doctor", "--timeout", "0.2"}).output, HasSubstr("does not answer; is it stopped?"));
  daemon.process().signal(SIGCONT);
  EXPECT_EQ(diagctl({"status"}).exitCode(), 0);
}

TEST_F(CommandLineTest, doctorSaysWhatIsMissingAndContextThatHistoriesAreOff) {
  EXPECT_THAT(diagctl({"doctor"}).output,
              HasSubstr("FAULT  no service is reachable in " + daemon.runtime().substr(0, 10)));
  daemon.setProperties("# correlation is off\n");
  daemon.start();
  const Outcome outcome = diagctl({"doctor"});
  EXPECT_EQ(outcome.exitCode(), 0) << outcome.output;
  EXPECT_THAT(outcome.output, AllOf(HasSubstr("ok     the configuration file is "), HasSubstr("is heard\n"),
                                    HasSubstr("no atom was lost"), HasSubstr("note   Histories are off. ")));
  EXPECT_THAT(diagctl({"context"}).output, HasSubstr("\nHistories are off. diagctl prop set persist."));
}

TEST_F(CommandLineTest, theDeviceRootThatTheServiceIsToldIsFoundInTheRuntimeDirectory) {
  const std::string command = "unset TORV_DEVICE_ROOT; " + staged("diagctl") + " config";
  const auto config = [&] { return fixture::run({"/bin/sh", "-c", command}, daemon.client()); };
  EXPECT_EQ(config().exitCode(), 1);
  daemon.dir().write("runtime/environment",
                     std::string("TORV_DEVICE_ROOT=") + getenv("TORV_DEVICE_ROOT") + "\n");
  const Outcome outcome = config();
  EXPECT_EQ(outcome.exitCode(), 0) << outcome.output;
}

}  // namespace
