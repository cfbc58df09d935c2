#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "HistoryReport.h"
#include "Source.h"

using namespace Torv::OS::Diagnostics;

namespace {

struct Sample {
  uint64_t timeMs;
  Json::Value value;
};

std::string reportOf(uint64_t nowMs, const std::vector<Sample>& samples) {
  const auto history = makeHistory("some_history", nowMs, samples,
                                   [](const Sample& sample, Json::Value& out) { out["m"] = sample.value; });
  EXPECT_EQ(history->size(), 1U);
  return history->at("some_history");
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

}  // namespace

TEST(Report, WithoutSamplesHasAnEmptySeries) {
  EXPECT_EQ(reportOf(1234, {}),
            "{\n\t\"report_time_ms\" : 1234,\n\t\"time_series\" : [],\n\t\"version\" : \"1.0\"\n}");
}

TEST(Report, ListsTheNewestSampleFirstWithItsAge) {
  EXPECT_EQ(test::json(reportOf(5000, {{1000, 1}, {3000, 2}, {5000, 3}})), test::json(R"({
      "version": "1.0", "report_time_ms": 5000, "time_series": [
      {"dt_ms": 0, "v": {"m": 3}}, {"dt_ms": 2000, "v": {"m": 2}}, {"dt_ms": 4000, "v": {"m": 1}}]})"));
}

TEST(Report, AnAgeIsUnsigned) {
  EXPECT_TRUE(contains(reportOf(4, {{5, 1}}), "\"dt_ms\" : 18446744073709551615"));
}

TEST(Report, CutsFloatingPointToTwoDecimalsAndNothingElse) {
  EXPECT_TRUE(contains(reportOf(0, {{0, 12.3456}}), "\"m\" : 12.35\n"));
  EXPECT_TRUE(contains(reportOf(0, {{0, 25.0}}), "\"m\" : 25.0\n"));
  EXPECT_TRUE(contains(reportOf(0, {{0, 0}}), "\"m\" : 0\n"));
  EXPECT_TRUE(contains(reportOf(0, {{0, std::numeric_limits<double>::quiet_NaN()}}), "\"m\" : null\n"));
  EXPECT_TRUE(contains(reportOf(0, {{0, Json::Value::UInt64{18446744073709551615U}}}),
                       "\"m\" : 18446744073709551615\n"));
}

TEST(Report, TimesAreWholeMilliseconds) {
  using Utils = SystemStateCollector::Utils;
  EXPECT_EQ(Utils::toMilliseconds({0, 999'999}), 0U);
  EXPECT_EQ(Utils::toMilliseconds({1, 999'999'999}), 1999U);
  // After some thirty years the double between nanoseconds and milliseconds rounds up.
  EXPECT_EQ(Utils::toMilliseconds({1'000'000'000, 999'999'999}), 1'000'000'001'000U);
}
