#include "CpuUsageCollector.h"

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "Source.h"

using namespace Torv::OS::Diagnostics;

namespace {

constexpr char kName[] = "cpu_utilization_history";
const SystemStateCollectorConfig kConfig(60, 2);

// The utilisation of each of the texts, oldest first, as the report has it: "{}" where a sample has none.
std::vector<Json::Value> utilizations(CpuUsageCollector& collector) {
  std::vector<Json::Value> values = test::valuesOf(collector, kName);
  std::reverse(values.begin(), values.end());
  for (Json::Value& value : values) {
    if (!value.empty()) value = Json::Value(value["CpuUtilization_%"]);
  }
  return values;
}

std::vector<Json::Value> utilizationsOf(std::initializer_list<std::string_view> texts) {
  test::Source source;
  CpuUsageCollector collector(kConfig, source.open());
  test::sampleEach(collector, source, texts);
  return utilizations(collector);
}

using Values = std::vector<Json::Value>;

}  // namespace

TEST(CpuUsageCollector, HasItsNames) {
  test::Source source;
  CpuUsageCollector collector(kConfig, source.open());
  EXPECT_EQ(collector.getId(), 6);
  EXPECT_EQ(collector.getDescription(), "Provides CPU utilization stats");
  EXPECT_EQ(collector.getSampleRate(), 2U);
}

TEST(CpuUsageCollector, ASampleCoversTheTimeSinceTheOneBeforeAndTheFirstTheTimeSinceBoot) {
  EXPECT_EQ(utilizationsOf({"cpu  10 0 10 70 10\n", "cpu  30 10 30 200 30\n"}), (Values{20.0, 25.0}));
}

TEST(CpuUsageCollector, IsAnIntegerZeroWhereNoTimePassed) {
  EXPECT_EQ(utilizationsOf({"cpu 50 0 0 50\n", "cpu 50 0 0 50\n", "cpu 40 0 0 50\n", "cpu 50 0 0 50\n"}),
            (Values{50.0, 0, 0, 100.0}));
}

TEST(CpuUsageCollector, ReadsTheColumnsOfEveryKernel) {
  // Ten columns hold guest time, which user and nice already contain.
  EXPECT_EQ(utilizationsOf({test::recorded("stat-10-columns-6.12")}), (Values{2.55}));
  EXPECT_EQ(utilizationsOf({test::recorded("stat-8-columns")}), (Values{6.01}));
  EXPECT_EQ(utilizationsOf({test::recorded("stat-7-columns")}), (Values{6.01}));
  EXPECT_EQ(utilizationsOf({"cpu 60 20 0 20 0 0 0 0 50 20\n", "cpu 160 40 0 40 0 0 0 0 150 40\n"}),
            (Values{80.0, 85.71}));

  std::string many = "cpu  2560 0 0 7680 0 0 0 0 0 0\n";
  for (int i = 0; i < 256; ++i) many += "cpu" + std::to_string(i) + " 10 0 0 30 0 0 0 0 0 0\n";
  EXPECT_EQ(utilizationsOf({many + "intr 1 2 3\n"}), (Values{25.0}));
}

TEST(CpuUsageCollector, WithoutAnAggregateLineHasNoValueAndKeepsItsBaseline) {
  EXPECT_EQ(utilizationsOf({"cpu 10 0 0 10\n", "cpu0 99 0 0 1\n", "", "xcpu 1 2 3 4\nthe cpu 5 6\n",
                            "cpu 10 0 0 110\n"}),
            (Values{50.0, Json::objectValue, Json::objectValue, Json::objectValue, 0.0}));
}

TEST(CpuUsageCollector, ReadsTornAndHostileLinesAsFarAsTheyGo) {
  // Only what stands before the first unreadable column counts, and idle time that runs back counts as none.
  EXPECT_EQ(utilizationsOf({"cpu 10 0 x 10\n"}), (Values{100.0}));
  EXPECT_EQ(utilizationsOf({"cpu"}), (Values{0}));
  EXPECT_EQ(utilizationsOf({"intr 1\n \tcpu 1 0 0 3"}), (Values{25.0}));
  EXPECT_EQ(utilizationsOf({"cpu 0 0 0 100\n", "cpu 200 0 0 50\n"}), (Values{0.0, 100.0}));
  EXPECT_EQ(utilizationsOf({"cpu 123456789012345678901234567890 0 0 5\n"}), (Values{100.0}));
}

TEST(CpuUsageCollector, TheBaselineOutlivesADump) {
  test::Source source;
  CpuUsageCollector collector(kConfig, source.open());
  test::sampleEach(collector, source, {"cpu 50 0 0 50\n", "cpu 75 0 0 125\n"});
  EXPECT_EQ(utilizations(collector), (Values{50.0, 25.0}));
  EXPECT_EQ(utilizations(collector), (Values{0, 25.0}));
  test::sampleEach(collector, source, {"cpu 75 0 0 225\n"});
  EXPECT_EQ(utilizations(collector), (Values{0, 25.0, 0.0}));
}
