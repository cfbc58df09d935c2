#include "HistoryChart.h"

#include <android-base/strings.h>
#include <gmock/gmock.h>

#include "text/Text.h"

namespace timeline {
namespace {

using testing::HasSubstr;

TEST(HistoryChartTest, perCentIsDrawnBetween0And100AndAConstantIsANumber) {
  Timeline timeline;
  timeline.series = {{"s", "constant", Unit::Percent, {{1000, 100}, {2000, 100}}},
                     {"s", "m", Unit::Percent, {{1000, 98.5}, {2000, 99}, {3000, 98.5}, {4000, 99}}}};
  timeline.endMs = 4000;
  const std::string chart = diagctl::historyCharts(timeline, 60, Glyphs::Ascii);
  EXPECT_THAT(chart, AllOf(HasSubstr("s, 0 to 100 %\n"), HasSubstr("  constant  100 % throughout\n")));
  EXPECT_THAT(chart,
              AllOf(HasSubstr("####"), HasSubstr("now 99 %, highest 99 %"), testing::Not(HasSubstr("_"))));
}

TEST(HistoryChartTest, aValueHoldsUntilTheNextOneButNotThroughAGapOrForLong) {
  const auto drawn = [](const Series& series, int64_t fromMs, int64_t toMs, size_t columns) {
    return bars(columnsOf(series, fromMs, toMs, columns), {}, Glyphs::Ascii);
  };
  const Series fast{"s", "m", Unit::Percent, {{1000, 0}, {2000, 0}, {3000, 100}, {4000, 0}, {5000, 0}}};
  EXPECT_EQ(drawn(fast, 1000, 5000, 4), "_#__");
  EXPECT_EQ(drawn({"s", "m", Unit::Percent, {{1000, 0}, {3000, 100}, {5000, 0}}}, 1000, 5000, 4), "_##_");
  const Series broken{"s", "m", Unit::Percent, {{1000, 50}, {2000, std::nullopt}, {4000, 50}}};
  EXPECT_EQ(drawn(broken, 0, 12000, 12), "=  ======   ");
}

TEST(HistoryChartTest, noLineIsWiderThanTheTerminal) {
  const std::string hostile(300, 'x');
  Timeline timeline;
  timeline.series = {{hostile, hostile, Unit::Kibibytes, {{1000, 1e9}, {2000, 2e9}}},
                     {"s", "m", Unit::Percent, {{1000, 1}, {2000, 2}, {3000, 3}}}};
  timeline.endMs = 3000;
  for (const size_t columns : {20, 80, 200}) {
    const std::string charts = diagctl::historyCharts(timeline, columns, Glyphs::Blocks);
    for (const std::string& line : android::base::Split(charts, "\n")) {
      EXPECT_LE(text::columnsOf(line), columns) << line;
    }
  }
}

}  // namespace
}  // namespace timeline
