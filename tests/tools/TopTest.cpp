// The live view in a real terminal.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "GeneratedRecording.h"
#include "Screen.h"
#include "fixture/Daemon.h"
#include "text/Text.h"

using testing::HasSubstr;
using testing::Not;
using tools::Screen;

namespace {

class TopTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    setlocale(LC_CTYPE, "C.UTF-8");
    sDir = new test::TempDir;
    recordings::writeGeneratedRecording(recording());
  }
  static void TearDownTestSuite() { delete sDir; }

  static std::string recording() { return sDir->path("ten_minutes.jsonl"); }
  static std::vector<std::string> top() { return {DIAGCTL, "top", "--from", recording()}; }

  static test::TempDir* sDir;
};

test::TempDir* TopTest::sDir = nullptr;

// After the view's end the terminal is as it was.
void expectRestored(const Screen& screen) {
  EXPECT_FALSE(screen.isTaken());
  EXPECT_THAT(screen.text(), HasSubstr(" echo "));
  EXPECT_THAT(screen.text(), HasSubstr(" icanon "));
  EXPECT_THAT(screen.text(), Not(HasSubstr("q quit")));
}

class TopSizeTest : public TopTest, public testing::WithParamInterface<std::pair<size_t, size_t>> {};

}  // namespace

TEST_P(TopSizeTest, fillsTheTerminalAndDoesWhatTheKeysSay) {
  const auto [columns, rows] = GetParam();
  const Screen screen(columns, rows, top());
  ASSERT_TRUE(screen.shows("q quit")) << screen.text();
  const auto lines = screen.lines();
  ASSERT_EQ(lines.size(), rows);
  EXPECT_THAT(lines.back(), HasSubstr("q quit"));
  EXPECT_EQ(text::columnsOf(lines[1]), columns) << "a chart fills the width";

  screen.press("Enter");
  EXPECT_TRUE(screen.shows("-    1000 application"));
  EXPECT_TRUE(screen.shows("key 0=value"));
  screen.press("Enter");
  screen.type("N");
  EXPECT_TRUE(screen.shows("50 s before the end")) << screen.text();
  screen.type("/1011");
  screen.press("Enter");
  EXPECT_TRUE(screen.shows("filter: 1011"));
  EXPECT_TRUE(screen.shows("dead 0 s")) << screen.text();
  screen.press("Right");
  EXPECT_TRUE(screen.shows("dead 1 s")) << screen.text();
  screen.type("q");
  EXPECT_TRUE(screen.shows("code=0"));
  expectRestored(screen);
}

INSTANTIATE_TEST_SUITE_P(, TopSizeTest, testing::Values(std::pair(80, 24), std::pair(200, 60)));

TEST_F(TopTest, restoresTheTerminalWhateverSignalEndsIt) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    const Screen screen(80, 24, top());
    ASSERT_TRUE(screen.shows("q quit"));
    EXPECT_TRUE(screen.isTaken());
    kill(screen.program(), signal);
    EXPECT_TRUE(screen.shows("code=" + std::to_string(128 + signal))) << screen.text();
    expectRestored(screen);
  }
}

TEST_F(TopTest, givesTheTerminalBackWhileItIsStopped) {
  const Screen screen(80, 24, {"bash", "--norc", "--noprofile", "-i"});
  screen.type(std::string(DIAGCTL) + " top --from " + recording() + "\n");
  ASSERT_TRUE(screen.shows("q quit")) << screen.text();
  screen.press("C-z");
  EXPECT_TRUE(screen.shows("Stopped")) << screen.text();
  EXPECT_FALSE(screen.isTaken());
  screen.type("fg\n");
  EXPECT_TRUE(screen.shows("q quit")) << screen.text();
  EXPECT_TRUE(screen.isTaken());
}

TEST_F(TopTest, followsTheSizeOfTheWindow) {
  const Screen screen(80, 24, top());
  ASSERT_TRUE(screen.shows("q quit"));
  screen.resize(120, 40);
  EXPECT_TRUE(fixture::eventually([&] {
    const auto lines = screen.lines();
    return text::columnsOf(lines[1]) == 120 && lines.back().find("q quit") != std::string::npos;
  })) << screen.text();
}

TEST_F(TopTest, drawsWithAsciiAloneInAnotherLocale) {
  const Screen screen(80, 24, top(), "C");
  ASSERT_TRUE(screen.shows("q quit"));
  EXPECT_THAT(screen.text(), HasSubstr("#"));
  for (const char c : screen.text()) EXPECT_LT(static_cast<unsigned char>(c), 0x80);
}

TEST_F(TopTest, refusesWhatIsNoTerminal) {
  const fixture::Outcome outcome = fixture::run(top(), {getuid(), {}});
  EXPECT_EQ(outcome.exitCode(), 1);
  EXPECT_THAT(outcome.output, HasSubstr("diagctl: the live view needs a terminal"));
  const Screen unknown(80, 24, {"env", "TERM=none-such", DIAGCTL, "top", "--from", recording()});
  EXPECT_TRUE(unknown.shows("nothing is known of the terminal none-such"));
  EXPECT_TRUE(unknown.shows("code=1"));
}

TEST_F(TopTest, goesOnWhenTheServiceCrashesAndReturns) {
  fixture::Daemon daemon;
  daemon.start();
  ASSERT_TRUE(fixture::publish(getpid(), "screen", "home\x1b[2J"));
  const Screen screen(120, 30, {DIAGCTL, "top"});
  ASSERT_TRUE(screen.shows("screen=home\\x1b[2J")) << screen.text();
  EXPECT_TRUE(screen.shows("atoms: 1 received, none dropped")) << screen.text();
  daemon.stop(SIGKILL);
  EXPECT_TRUE(screen.shows("is not running in")) << screen.text();
  daemon.start();
  ASSERT_TRUE(fixture::publish(getpid(), "screen", "back"));
  EXPECT_TRUE(screen.shows("screen=back")) << screen.text();
  EXPECT_TRUE(screen.loses("is not running in"));
  screen.type("q");
  EXPECT_TRUE(screen.shows("code=0"));
  expectRestored(screen);
}
