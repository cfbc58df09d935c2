// The live view in a real terminal.
#include <gmock/gmock.h>
#include <signal.h>

#include "Screen.h"
#include "text/Text.h"

using testing::HasSubstr;
using testing::Not;
using tools::Screen;

namespace {

class TopTest : public testing::TestWithParam<std::pair<size_t, size_t>> {
 protected:
  TopTest() {
    setlocale(LC_CTYPE, "C.UTF-8");
    fixture::run({"/usr/bin/python3", "-B", RECORDING_SCRIPT, top.back()}, {getuid(), {}});
  }

  // After the view's end the terminal is as it was.
  static void expectEnd(const Screen& screen, int exitCode) {
    EXPECT_TRUE(screen.shows("code=" + std::to_string(exitCode))) << screen.text();
    EXPECT_TRUE(screen.shows(" echo ")) << "as stty says it";
    EXPECT_THAT(screen.text(), AllOf(HasSubstr(" icanon "), Not(HasSubstr("q quit"))));
    EXPECT_FALSE(screen.isTaken());
  }

  const test::TempDir dir;
  const std::vector<std::string> top = {DIAGCTL, "top", "--from", dir.path("recording")};
};

}  // namespace

TEST_P(TopTest, fillsTheTerminalDoesWhatTheKeysSayAndFollowsTheWindowsSize) {
  const auto [columns, rows] = GetParam();
  const Screen screen(columns, rows, top);
  ASSERT_TRUE(screen.shows("q quit")) << screen.text();
  const auto lines = screen.lines();
  ASSERT_EQ(lines.size(), rows);
  EXPECT_THAT(lines.back(), HasSubstr("q quit"));
  EXPECT_EQ(text::columnsOf(lines[1]), columns) << "a chart fills the width";

  screen.press("Enter");
  EXPECT_TRUE(screen.shows("-    1000 phötos"));
  screen.press("Enter");
  screen.type("N");
  EXPECT_TRUE(screen.shows("50 s before the end")) << screen.text();
  screen.type("/1011");
  screen.press("Enter");
  EXPECT_TRUE(screen.shows("filter: 1011"));
  EXPECT_TRUE(screen.shows("dead 0 s")) << screen.text();
  screen.press("Right");
  EXPECT_TRUE(screen.shows("dead 1 s")) << screen.text();
  screen.resize(120, 40);
  EXPECT_TRUE(fixture::eventually([&] {
    const auto resized = screen.lines();
    return text::columnsOf(resized[1]) == 120 && resized.back().find("q quit") != std::string::npos;
  })) << screen.text();
  screen.type("q");
  expectEnd(screen, 0);
}

INSTANTIATE_TEST_SUITE_P(, TopTest, testing::Values(std::pair(80, 24), std::pair(200, 60)));

TEST_F(TopTest, restoresTheTerminalWhateverSignalEndsIt) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    const Screen screen(80, 24, top);
    ASSERT_TRUE(screen.shows("q quit"));
    EXPECT_TRUE(screen.isTaken());
    kill(screen.program(), signal);
    expectEnd(screen, 128 + signal);
  }
}

TEST_F(TopTest, givesTheTerminalBackWhileItIsStopped) {
  const Screen screen(80, 24, {"bash", "--norc", "--noprofile", "-i"});
  screen.type(android::base::Join(top, ' ') + "\n");
  ASSERT_TRUE(screen.shows("q quit")) << screen.text();
  screen.press("C-z");
  EXPECT_TRUE(screen.shows("Stopped")) << screen.text();
  EXPECT_FALSE(screen.isTaken());
  screen.type("fg\n");
  EXPECT_TRUE(screen.shows("q quit")) << screen.text();
  EXPECT_TRUE(screen.isTaken());
}

TEST_F(TopTest, drawsWithAsciiAloneInAnotherLocale) {
  const Screen screen(80, 24, top, "C");
  ASSERT_TRUE(screen.shows("q quit"));
  EXPECT_THAT(screen.text(), AllOf(HasSubstr("=*"), HasSubstr("1000 ph?tos")));
  for (const char c : screen.text()) EXPECT_LT(static_cast<unsigned char>(c), 0x80);
}

TEST_F(TopTest, refusesWhatIsNoTerminal) {
  const fixture::Outcome outcome = fixture::run(top, {getuid(), {}});
  EXPECT_EQ(outcome.exitCode(), 1);
  EXPECT_THAT(outcome.output, HasSubstr("diagctl: the live view needs a terminal"));
  const Screen unknown(80, 24, {"env", "TERM=none-such", DIAGCTL, "top"});
  EXPECT_TRUE(unknown.shows("nothing is known of the terminal none-such"));
  EXPECT_TRUE(unknown.shows("code=1"));
}

TEST_F(TopTest, waitsForTheServiceAndGoesOnWhenItCrashesAndReturns) {
  fixture::Daemon daemon;
  const Screen screen(120, 30, {DIAGCTL, "top"});
  ASSERT_TRUE(screen.shows("is not running in")) << screen.text();
  EXPECT_THAT(screen.text(), AllOf(HasSubstr("no answer yet"), Not(HasSubstr("1970"))));
  daemon.start();
  ASSERT_TRUE(fixture::publish(getpid(), "screen", "home\x1b[2J"));
  ASSERT_TRUE(screen.shows("screen=home\\x1b[2J")) << screen.text();
  EXPECT_TRUE(screen.shows("atoms: 1 received, none dropped")) << screen.text();
  daemon.stop(SIGKILL);
  EXPECT_TRUE(screen.shows("is not running in")) << screen.text();
  daemon.start();
  ASSERT_TRUE(fixture::publish(getpid(), "screen", "back"));
  EXPECT_TRUE(screen.shows("screen=back")) << screen.text();
  EXPECT_THAT(screen.text(), Not(HasSubstr("is not running in")));
  screen.type("q");
  expectEnd(screen, 0);
}
