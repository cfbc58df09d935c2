// What diagctl prints and how it exits, over the real service.

#include <cstdlib>

#include <signal.h>

#include <android-base/strings.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
  // `command` is a line whose arguments have no blanks.
  Outcome diagctl(const std::string& command) {
    return fixture::run(android::base::Split(staged("diagctl") + " " + command, " "),
                        daemon.client(fixture::serviceUid()));
  }

  void expect(const std::string& command, int exitCode, const testing::Matcher<std::string>& output) {
    const Outcome outcome = diagctl(command);
    EXPECT_EQ(outcome.exitCode(), exitCode) << command;
    EXPECT_THAT(outcome.output, output) << command;
  }

  Json::Value json(const std::string& command) {
    const Outcome outcome = diagctl(command + " --json");
    const auto value = Torv::Base::parseJson(outcome.output, Torv::Base::JsonRules::Strict);
    EXPECT_TRUE(outcome.exitCode() == 0 && value.ok()) << outcome.output;
    return value.ok() ? *value : Json::Value();
  }

  Daemon daemon;
};

TEST_F(CommandLineTest, statesAreTablesForPeopleAndJsonForPrograms) {
  daemon.start();
  EXPECT_TRUE(publish(70, "screen", "home") && publish(70, "last_action", "tap"));
  EXPECT_TRUE(publish(9, "number", "42") && publish(9, "object", "{\"a\": [1, 2]}"));
  EXPECT_TRUE(publish(9, "almost", "{\"a\": 1} and more"));
  expect("state 70", 0, "process 70\n  last_action  tap\n  screen       home\n");
  expect("states", 0, HasSubstr("process 70\n  last_action  tap\n"));

  const Json::Value all = json("states");
  EXPECT_EQ(all["70"], json("state 70"));
  EXPECT_EQ(all["70"]["processId"].asInt(), 70);
  // Values that are JSON documents are nested, and nothing else is.
  const Json::Value states = all["9"]["ApplicationStateData"];
  EXPECT_EQ(states["object"]["a"][1].asInt(), 2);
  EXPECT_EQ(states["number"].asString(), "42");
  EXPECT_EQ(states["almost"].asString(), "{\"a\": 1} and more");
  // What applications publish cannot drive the terminal.
  EXPECT_TRUE(publish(5, "title\x1b]0;x\x07", "a\nb\x1b[2J\u202ec\u009bd"));
  expect("state 5", 0, "process 5\n  title\\x1b]0;x\\x07  a\\nb\\x1b[2J\\u202ec\\x9bd\n");
}

TEST_F(CommandLineTest, contextShowsHistoriesAsCharts) {
  daemon.start();
  ASSERT_TRUE(fixture::eventually([&] {
    const Json::Value values = json("context")["SystemContextData"];
    return values["cpu_utilization_history"]["time_series"].size() > 1;
  }));
  expect("context", 0,
         AllOf(HasSubstr("build_fingerprint"), HasSubstr("\nsystem_meminfo_history, 0 to 100 %\n"),
               HasSubstr("now "), Not(HasSubstr("time_series"))));
}

TEST_F(CommandLineTest, pingAndNotifySayWhatHappened) {
  daemon.start();
  EXPECT_TRUE(json("ping")["DiagnosticsNotificationService"]["round_trip_us"].isIntegral());
  EXPECT_EQ(json("notify 1")["sent"].asInt(), 1);
  expect("notify -2", 0, testing::_);
  EXPECT_TRUE(daemon.logs("onEvent called with event id: 1\n"));
  EXPECT_TRUE(daemon.logs("Unexpected system event: -2\n"));
  EXPECT_EQ(daemon.countInLog("onEvent called"), 1u);
}

TEST_F(CommandLineTest, aPropertyIsSetAndUnset) {
  expect("prop set a.b 1", 0, "");
  expect("prop unset a.b", 0, "");
  expect("prop get a.b", 1, HasSubstr("a.b is not set"));
  expect("prop unset a.b", 1, HasSubstr("a.b"));
}

TEST_F(CommandLineTest, exitCodesTellRefusalFromWrongUsage) {
  expect("ping", 1, HasSubstr("is not running in " + daemon.runtime().substr(0, 10)));
  daemon.start();
  expect("state 123456", 1, HasSubstr("Nothing is known of process 123456"));
  for (const std::string wrong :
       {"state", "states x", "notify 99999999999", "ping --timeout -1", "ping --timeout nan", "bogus",
        "pref bogus", "pref", "record -o /dev/null --every 1x"}) {
    expect(wrong, 2, StartsWith("diagctl: "));
  }
  expect("pref bogus", 2, HasSubstr("there is no command 'pref bogus'"));
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
  daemon.pause();
  for (const std::string command : {"status", "push a b", "ping", "states"}) {
    expect(command + " --timeout 0.2", 1, HasSubstr("did not answer within 0.2 s. It may be stopped"));
  }
  expect("doctor --timeout 0.2", 1, HasSubstr("does not answer; is it stopped?"));
  const Outcome reporter = fixture::run(
      {staged("crash_reporter"), "--pid", "1", "--out", "/dev/null", "--timeout", "0.2"}, daemon.client());
  EXPECT_EQ(reporter.exitCode(), 1);
  EXPECT_THAT(reporter.output, HasSubstr("did not answer within 0.2 s"));
  daemon.process().signal(SIGCONT);
  expect("status", 0, testing::_);
  expect("ping --timeout 50", 0, testing::_);
}

TEST_F(CommandLineTest, doctorSaysWhatIsMissingAndContextThatHistoriesAreOff) {
  expect("doctor", 1, HasSubstr("FAULT  no service is reachable in " + daemon.runtime().substr(0, 10)));
  daemon.setProperties("# correlation is off\n");
  daemon.start();
  expect("doctor", 0,
         AllOf(HasSubstr("ok     the configuration file is "), HasSubstr("is heard\n"),
               HasSubstr("no atom was lost"), HasSubstr("note   Histories are off. ")));
  expect("context", 0, HasSubstr("\nHistories are off. diagctl prop set persist."));
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
