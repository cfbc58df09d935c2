#include "HistoryChart.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "text/Text.h"

namespace {

using diagctl::historyCharts;
using testing::HasSubstr;
using testing::Not;
using timeline::Glyphs;
using timeline::Series;
using timeline::Timeline;
using timeline::Unit;

// One value a second, from second 1 on.
Series series(const std::string& source, const std::string& metric, Unit unit,
              const std::vector<double>& values) {
  Series result{source, metric, unit, {}};
  for (size_t i = 0; i < values.size(); ++i)
    result.points.push_back({static_cast<int64_t>(i + 1) * 1000, values[i]});
  return result;
}

Timeline timelineOf(std::vector<Series> all, int64_t endMs) {
  Timeline timeline;
  timeline.series = std::move(all);
  timeline.beginMs = 1000;
  timeline.endMs = endMs;
  return timeline;
}

TEST(HistoryChartTest, perCentIsDrawnBetween0And100WhateverItsRange) {
  const Timeline timeline = timelineOf({series("s", "m", Unit::Percent, {98.5, 99, 98.5, 99})}, 4000);
  const std::string chart = historyCharts(timeline, 60, Glyphs::Ascii);
  EXPECT_THAT(chart, HasSubstr("s, 0 to 100 %\n"));
  EXPECT_THAT(chart, AllOf(HasSubstr("####"), HasSubstr("now 99 %, highest 99 %"), Not(HasSubstr("_"))));
}

TEST(HistoryChartTest, aConstantIsOneNumberAndNoBars) {
  const Timeline timeline = timelineOf({series("s", "m", Unit::Percent, {100, 100})}, 2000);
  EXPECT_THAT(historyCharts(timeline, 80, Glyphs::Blocks), HasSubstr("  m  100 % throughout\n"));
}

TEST(HistoryChartTest, sourcesOfDifferentPeriodsShareOneTimeAxis) {
  Series slow{"b", "m", Unit::Percent, {{1000, 0.0}, {3000, 100.0}, {5000, 0.0}}};
  const Timeline timeline = timelineOf({series("a", "m", Unit::Percent, {0, 0, 100, 0, 0}), slow}, 5000);
  const auto fast = timeline::columnsOf(timeline.series[0], 1000, 5000, 4);
  const auto held = timeline::columnsOf(timeline.series[1], 1000, 5000, 4);
  EXPECT_EQ(timeline::bars(fast, {}, Glyphs::Ascii), "_#__");
  EXPECT_EQ(timeline::bars(held, {}, Glyphs::Ascii), "_##_") << "a value holds until the next one";
}

TEST(HistoryChartTest, aGapAndTheTimeAfterTheLastPointStayBlank) {
  const Series broken{"s", "m", Unit::Percent, {{1000, 50.0}, {2000, std::nullopt}, {4000, 50.0}}};
  EXPECT_EQ(timeline::bars(timeline::columnsOf(broken, 0, 12000, 12), {}, Glyphs::Ascii), "=  ======   ");
}

TEST(HistoryChartTest, noLineIsWiderThanTheTerminal) {
  const std::string hostile(300, 'x');
  const Timeline timeline = timelineOf(
      {series(hostile, hostile, Unit::Kibibytes, {1e9, 2e9}), series("s", "m", Unit::Percent, {1, 2, 3})},
      3000);
  for (const size_t columns : {20, 80, 200}) {
    std::string charts = historyCharts(timeline, columns, Glyphs::Blocks);
    for (size_t end = 0; (end = charts.find('\n')) != std::string::npos; charts.erase(0, end + 1)) {
      EXPECT_LE(text::columnsOf(charts.substr(0, end)), columns) << charts.substr(0, end);
    }
  }
}

}  // namespace
