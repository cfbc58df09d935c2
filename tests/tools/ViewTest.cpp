#include "top/View.h"

#include <clocale>

#include <android-base/strings.h>
#include <gmock/gmock.h>

#include "text/Text.h"

using testing::HasSubstr;
using testing::Not;
using timeline::Timeline;

namespace top {
namespace {

constexpr int64_t kEndMs = 600'000;

// Two processes over ten minutes: one changes its screen a second before the end, the other died after five.
Timeline story() {
  Timeline timeline;
  timeline.clocks = {kEndMs, kEndMs, 1'790'000'000'000};
  timeline.endMs = kEndMs;
  timeline.changes = {{0, 10, "user", "ada", true},
                      {0, 20, "screen", "mail", true},
                      {10'000, 10, "screen", "home", false},
                      {kEndMs - 1000, 10, "screen", "editor", false}};
  timeline.deaths = {{300'000, 20, 11, "mail"}};
  timeline.names = {{10, "photos"}, {20, "mail_app"}};
  timeline::Series cpu{"cpu_utilization_history", "CpuUtilization_%", timeline::Unit::Percent, {}};
  for (int64_t ms = kEndMs - 60'000; ms <= kEndMs; ms += 1000) cpu.points.push_back({ms, 100.0});
  timeline.series = {cpu};
  return timeline;
}

class ViewTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(setlocale(LC_CTYPE, "C.UTF-8"), nullptr); }

  std::vector<std::string> rowsOf(Size size) {
    std::vector<std::string> rows;
    for (const Line& line : mView.render(mTimeline, mSurroundings, size)) {
      rows.emplace_back();
      for (const Span& span : line) rows.back() += span.text;
    }
    return rows;
  }
  std::string text(Size size = {}) { return android::base::Join(rowsOf(size), '\n') + '\n'; }

  bool press(Key key) { return mView.handle({key, ""}, mTimeline); }
  bool type(const std::string& characters) {
    bool goesOn = true;
    for (const char c : characters) goesOn = mView.handle({Key::Character, std::string(1, c)}, mTimeline);
    return goesOn;
  }

  Timeline mTimeline = story();
  Surroundings mSurroundings{"live", "atoms: 7 received, none dropped", ""};
  View mView{true, timeline::Glyphs::Blocks};
};

TEST_F(ViewTest, fillsTheScreenAndNoMore) {
  mTimeline.changes.push_back({1, 30, "long", std::string(4096, 'x'), false});
  for (const Size size : {Size{80, 24}, Size{200, 60}, Size{40, 10}, Size{20, 5}, Size{5, 3}, Size{1, 1}}) {
    const auto rows = rowsOf(size);
    EXPECT_EQ(rows.size(), size.rows);
    for (const std::string& row : rows) EXPECT_LE(text::columnsOf(row), size.columns) << row;
  }
}

TEST_F(ViewTest, drawsChartsOnAFixedScaleOverATimeAxis) {
  // 100 columns of 120 s: values for the last 60 s, at the top of the scale though they never change.
  EXPECT_THAT(rowsOf({124, 30})[1], testing::MatchesRegex("CPU {60,70}█+ 100.0 %"));
  EXPECT_THAT(text({124, 30}),
              testing::ContainsRegex("0 to 100 % +\\|-2:00 +\\|-1:30 +\\|-1:00 +\\|-0:30 +\\|"));
}

TEST_F(ViewTest, showsProcessesWithChangedKeysMarkedAndTheDeadWithTheirTime) {
  for (const char* const part : {"+      10 photos                   1 s  *screen=editor  user=ada",
                                 "+      20 mail_app          dead 5 min  screen=mail", "2 processes, 1 dead",
                                 "atoms: 7 received, none dropped"}) {
    EXPECT_THAT(text(), HasSubstr(part));
  }
}

TEST_F(ViewTest, keepsTheCursorOnItsProcessWhenOthersComeAndGoAndOpensIt) {
  for (int32_t pid = 100; pid < 200; ++pid) mTimeline.changes.push_back({kEndMs, pid, "k", "v", false});
  text();
  press(Key::PageDown);
  press(Key::PageDown);
  const auto under = [this] {
    for (const Line& line : mView.render(mTimeline, mSurroundings, {})) {
      if (!line.empty() && line[0].style == Style::Cursor) return line[0].text.substr(0, 9);
    }
    return std::string("not on the screen");
  };
  const std::string before = under();
  EXPECT_THAT(before, HasSubstr("  1"));
  mTimeline.changes.insert(mTimeline.changes.begin(), {0, 5, "new", "first", true});
  EXPECT_EQ(under(), before);
  press(Key::Down);
  const std::string next = under();
  EXPECT_NE(next, before);
  press(Key::Enter);
  EXPECT_EQ(under(), "-" + next.substr(1));
}

TEST_F(ViewTest, filtersByPidNameKeyAndValue) {
  type("/edi");
  EXPECT_THAT(text(), AllOf(HasSubstr("photos"), Not(HasSubstr("mail_app"))));
  EXPECT_TRUE(type("q")) << "q is a letter of the filter";
  EXPECT_THAT(text(), HasSubstr("No process matches the filter."));
  press(Key::Backspace);
  press(Key::Enter);
  EXPECT_THAT(text(), HasSubstr("filter: edi"));
  press(Key::Escape);
  EXPECT_THAT(text(), HasSubstr("mail_app"));
  EXPECT_FALSE(type("q"));
}

TEST_F(ViewTest, walksThroughTime) {
  press(Key::Left);
  press(Key::Left);
  EXPECT_THAT(text(), AllOf(HasSubstr("screen=home"), HasSubstr("paused")));
  for (const auto& [key, shown] :
       {std::pair("N", "dead 0 s"), {"<", "2 processes, 0 dead"}, {"n", "dead 0 s"}, {">", "dead 60 s"}}) {
    type(key);
    EXPECT_THAT(text(), HasSubstr(shown)) << key;
  }
  for (const Key key : {Key::Home, Key::Left}) {
    press(key);
    EXPECT_THAT(text(), HasSubstr("10 min before the end"));
  }
  press(Key::End);
  EXPECT_FALSE(mView.isPaused());
  type(" ");
  mTimeline.endMs += 5000;
  mTimeline.changes.push_back({mTimeline.endMs, 10, "screen", "share", false});
  EXPECT_THAT(text(), HasSubstr("screen=editor")) << "it stands still while it is paused";
  type(" ");
  EXPECT_THAT(text(), HasSubstr("screen=share"));
}

TEST_F(ViewTest, playsARecordingFromItsBeginningToItsEnd) {
  mView = View(false, timeline::Glyphs::Blocks);
  EXPECT_TRUE(mView.isPaused());
  type(" ++++");
  EXPECT_EQ(mView.periodMs(), 60'000);
  for (int i = 0; i < 9; ++i) mView.tick(mTimeline);
  EXPECT_FALSE(mView.isPaused());
  EXPECT_THAT(text(), HasSubstr("screen=home"));
  mView.tick(mTimeline);
  EXPECT_TRUE(mView.isPaused());
  EXPECT_THAT(text(), HasSubstr("screen=editor"));
  type("----------");
  EXPECT_EQ(mView.periodMs(), 250);
}

TEST_F(ViewTest, showsNothingOfAProcessThatATerminalWouldActOn) {
  mTimeline.changes = {{0, 10, "k\x1b[2J", "v\r\n\u009b31m\u202e", true}};
  mTimeline.names = {{10, "n\x07\x1b]0;x"}};
  mSurroundings.notice = "gone\x1b[31m";
  press(Key::Enter);
  for (const char c : text()) EXPECT_TRUE(static_cast<unsigned char>(c) >= 0x20 || c == '\n') << text();
  EXPECT_THAT(text(), AllOf(HasSubstr("\\x1b[2J"), HasSubstr("gone\\x1b[31m"), Not(HasSubstr("\u202e"))));
}

}  // namespace
}  // namespace top
