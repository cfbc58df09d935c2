// Atoms and properties from the command line: the real diagctl, and the collection of this process.
#include <osutils/Properties.h>
#include <unistd.h>

#include "StatsdFixture.h"

namespace libstatsd {
namespace {

fixture::Outcome diagctl(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), DIAGCTL);
  return fixture::run(arguments, {getuid(), {}});
}

// What a diagctl that refuses says.
std::string refusal(const std::vector<std::string>& arguments) {
  const fixture::Outcome outcome = diagctl(arguments);
  EXPECT_EQ(outcome.exitCode(), 1) << outcome.output;
  return outcome.output;
}

using DiagctlAtomsTest = StatsdTest;

TEST_F(DiagctlAtomsTest, pushedAtomsAreThoseOfAnApplication) {
  ASSERT_EQ(publish(), PublishStatus::Success);
  EXPECT_EQ(diagctl({"push", "--pid", "1234", "screen", "home"}).exitCode(), 0);
  EXPECT_EQ(diagctl({"push", "screen", ""}).exitCode(), 0);
  EXPECT_EQ(diagctl({"push-session", "s-1", "u-2"}).exitCode(), 0);
  EXPECT_THAT(diagctl({"status", "--json"}).output, HasSubstr("\"held\" : 3"));
  const std::vector<std::string> pushed = fetch();
  mWriter.publishApplicationState(1234, "screen", "home");
  mWriter.publishApplicationState(getpid(), "screen", "");  // diagctl's parent counts as the shell
  mWriter.publishTelemetrySession("s-1", "u-2");
  EXPECT_EQ(pushed, fetch());
}

TEST_F(DiagctlAtomsTest, aPushThatCannotArriveIsRefusedInASentence) {
  EXPECT_THAT(refusal({"push", "k", "v"}), HasSubstr("Start one with ./run serve"));
  EXPECT_THAT(refusal({"status"}), HasSubstr(mDirectory.path()));
  ASSERT_EQ(publish({"AID_LMKD"}), PublishStatus::Success);
  EXPECT_THAT(
      refusal({"push", "k", "v"}),
      HasSubstr("does not take atoms of uid " + std::to_string(getuid()) + ". It takes those of AID_LMKD"));
  ASSERT_EQ(publish(), PublishStatus::Success);
  EXPECT_THAT(refusal({"push", "k", std::string(5000, 'x')}), HasSubstr("at most 4064 bytes"));
  EXPECT_EQ(diagctl({"push", "--pid", "0", "k", "v"}).exitCode(), 2);
}

TEST_F(DiagctlAtomsTest, propertiesAreSetReadAndListed) {
  EXPECT_EQ(diagctl({"prop", "set", "a.b", "one two"}).exitCode(), 0);
  EXPECT_EQ(diagctl({"prop", "set", "ro.x", "1"}).exitCode(), 0);
  EXPECT_EQ(Torv::Utils::getSystemProperty("a.b"), "one two");
  EXPECT_EQ(diagctl({"prop", "get", "a.b"}).output, "one two\n");
  EXPECT_EQ(diagctl({"prop", "list"}).output, "a.b   one two\nro.x  1\n");
  EXPECT_THAT(refusal({"prop", "set", "ro.x", "2"}), HasSubstr("ro.x is read-only"));
  EXPECT_EQ(diagctl({"prop", "get", "absent"}).exitCode(), 1);
}

}  // namespace
}  // namespace libstatsd
