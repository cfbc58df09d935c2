#include "HistoryChart.h"

#include <optional>
#include <string>

#include <gtest/gtest.h>

using diagctl::historyChart;

namespace {

// The chart of samples given newest first, as a report has them.
std::string chartOf(const std::string& samples) {
  const auto chart =
      historyChart(R"({"version": "1.0", "report_time_ms": 5, "time_series": [)" + samples + "]}");
  return chart.value_or("no history");
}

}  // namespace

TEST(HistoryChart, DrawsTheOldestSampleLeftAndEachMetricOnItsOwnScale) {
  EXPECT_EQ(chartOf(R"({"dt_ms": 1, "v": {"a": 1.25, "long": 10}}, {"dt_ms": 2, "v": {"a": 0.0, "long": 80}},
                       {"dt_ms": 3, "v": {"a": 0.5, "long": 70}})"),
            "a     ▄▁█  newest 1.25  lowest 0  highest 1.25\n"
            "long  ▇█▁  newest 10  lowest 10  highest 80\n");
}

TEST(HistoryChart, LeavesABlankWhereASampleHasNoValue) {
  EXPECT_EQ(
      chartOf(R"({"v": {}}, {"v": {"m": 3}}, {"v": {"m": null}}, {"v": {"m": 3}}, {"v": {"n": null}}, 7)"),
      "m    ▁ ▁   newest 3  lowest 3  highest 3\n"
      "n  no values\n");
}

TEST(HistoryChart, KeepsLargeNumbersWhole) {
  EXPECT_EQ(chartOf(R"({"v": {"m": 18446744073709551615}}, {"v": {"m": -1.5e308}}, {"v": {"m": 1.5e308}})"),
            "m  █▁▅  newest 18446744073709551615  lowest -1.5e+308  highest 1.5e+308\n");
}

TEST(HistoryChart, SaysWhenThereIsNothingToDraw) {
  EXPECT_EQ(chartOf(""), "no samples\n");
  EXPECT_EQ(chartOf(R"({"v": {}})"), "");
  for (const char* const text : {"", "{", "[]", "7", R"({"time_series": 1})", R"({"other": []})"}) {
    EXPECT_EQ(historyChart(text), std::nullopt) << text;
  }
}
