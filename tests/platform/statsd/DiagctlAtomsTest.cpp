// Atoms and properties from the command line: the real diagctl, and the collection of this process.
#include <string>
#include <variant>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <osutils/Properties.h>
#include <osutils/Telemetry.h>
#include <statsd/StatsdCollection.h>
#include <statsd/StatsdConfiguration.h>
#include <unistd.h>

#include "Bytes.h"
#include "ProtoAppend.h"
#include "fixture/Process.h"
#include "os/Json.h"
#include "support/TempDir.h"

namespace libstatsd {
namespace {

using testing::HasSubstr;

constexpr int32_t kConfigId = 57476;

fixture::Outcome diagctl(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), DIAGCTL);
  fixture::ProcessOptions options;
  options.uid = getuid();
  return fixture::run(arguments, options);
}

Json::Value diagctlJson(std::vector<std::string> arguments) {
  arguments.emplace_back("--json");
  std::string error;
  return Torv::OS::parseJson(diagctl(arguments).output, error, Torv::OS::JsonRules::Strict)
      .value_or(Json::Value());
}

class DiagctlAtomsTest : public testing::Test {
 protected:
  static void publish(const std::string& source) {
    StatsdConfiguration configuration;
    ASSERT_TRUE(configuration.addEventAtomId(110010));
    ASSERT_TRUE(configuration.addEventAtomId(111983));
    configuration.addAllowedLogSource(source);
    ASSERT_EQ(configuration.publishConfigurationBlocked(kConfigId, 1000), PublishStatus::Success);
  }

  test::TempDir mDirectory;
  test::ScopedEnv mEnvironment{"TORV_RUNTIME_DIR", mDirectory.path()};
};

TEST_F(DiagctlAtomsTest, PushedAtomsArriveFieldForField) {
  publish("AID_APP");
  EXPECT_EQ(diagctl({"push", "--pid", "1234", "screen", "home"}).exitCode(), 0);
  EXPECT_EQ(diagctl({"push", "screen", ""}).exitCode(), 0);
  EXPECT_EQ(diagctl({"push-session", "s-1", "u-2"}).exitCode(), 0);
  EXPECT_EQ(diagctlJson({"status"})["held"], 3);

  StatsdCollection collection;
  collection.addConfiguration(kConfigId, 1000);
  const auto answer = collection.fetchReportsBlocked();
  const Report& atoms = std::get<std::vector<Report>>(answer).at(0);
  ASSERT_EQ(atoms.size(), 3U);
  const auto payload = [&](size_t i) {
    return std::string(Torv::OS::Telemetry::parseAtom(atoms[i].atom).payload);
  };
  EXPECT_EQ(payload(0), test::bytes("08 d209 12 06 73637265656e 1a 04 686f6d65"));
  std::string ofTheShell;
  appendInt32(ofTheShell, 1, getpid());
  EXPECT_EQ(payload(1), ofTheShell + test::bytes("12 06 73637265656e 1a 00"));
  EXPECT_EQ(payload(2), test::bytes("0a 03 732d31 12 03 752d32"));
}

TEST_F(DiagctlAtomsTest, APushThatCannotArriveIsRefusedInASentence) {
  const auto refusal = [](const std::vector<std::string>& arguments) {
    const fixture::Outcome outcome = diagctl(arguments);
    EXPECT_EQ(outcome.exitCode(), 1) << outcome.output;
    return outcome.output;
  };
  EXPECT_THAT(refusal({"push", "k", "v"}), HasSubstr("Start one with ./run serve"));
  EXPECT_THAT(refusal({"status"}), HasSubstr(mDirectory.path()));
  publish("AID_LMKD");
  EXPECT_THAT(
      refusal({"push", "k", "v"}),
      HasSubstr("does not take atoms of uid " + std::to_string(getuid()) + ". It takes those of AID_LMKD"));
  publish("AID_APP");
  EXPECT_THAT(refusal({"push", "k", std::string(5000, 'x')}), HasSubstr("at most 4064 bytes"));
  EXPECT_EQ(diagctl({"push", "k"}).exitCode(), 2);
  EXPECT_EQ(diagctl({"push", "--pid", "0", "k", "v"}).exitCode(), 2);
}

TEST_F(DiagctlAtomsTest, PropertiesAreSetReadAndListed) {
  EXPECT_EQ(diagctl({"prop", "set", "a.b", "one two"}).exitCode(), 0);
  EXPECT_EQ(diagctl({"prop", "set", "ro.x", "1"}).exitCode(), 0);
  EXPECT_EQ(Torv::Utils::getSystemProperty("a.b"), "one two");
  EXPECT_EQ(diagctl({"prop", "get", "a.b"}).output, "one two\n");
  EXPECT_EQ(diagctl({"prop", "list"}).output, "a.b   one two\nro.x  1\n");
  const Json::Value listed = diagctlJson({"prop", "list"});
  EXPECT_EQ(listed["a.b"], "one two");
  EXPECT_EQ(listed.size(), 2U);

  const fixture::Outcome again = diagctl({"prop", "set", "ro.x", "2"});
  EXPECT_EQ(again.exitCode(), 1);
  EXPECT_THAT(again.output, HasSubstr("ro.x is read-only"));
  EXPECT_EQ(diagctl({"prop", "get", "absent"}).exitCode(), 1);
  EXPECT_EQ(diagctl({"prop"}).exitCode(), 2);
}

}  // namespace
}  // namespace libstatsd
