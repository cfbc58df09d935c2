#include "GpuCollector.h"

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "Source.h"
#include "support/LogCapture.h"

using namespace Torv::OS::Diagnostics;

namespace {

constexpr char kName[] = "gpu_utilization_history";
const SystemStateCollectorConfig kConfig(60, 2);

// The values of the samples, oldest first, as JSON.
std::vector<Json::Value> valuesOf(GpuCollector& collector) {
  std::vector<Json::Value> values = test::valuesOf(collector, kName);
  std::reverse(values.begin(), values.end());
  return values;
}

std::vector<Json::Value> valuesOf(std::initializer_list<std::string_view> texts) {
  test::Source source;
  GpuCollector collector(kConfig, source.open());
  test::sampleEach(collector, source, texts);
  return valuesOf(collector);
}

Json::Value busy(const Json::Value& percent) {
  Json::Value value;
  value["GpuUtilization_%"] = percent;
  return value;
}

using Values = std::vector<Json::Value>;

}  // namespace

TEST(GpuCollector, HasItsNamesAndItsOwnWordsForABadStream) {
  std::ifstream stream;
  stream.setstate(std::ios::badbit);
  GpuCollector collector(kConfig, std::move(stream));
  EXPECT_EQ(collector.getId(), 7);
  EXPECT_EQ(collector.getDescription(), "Provides GPU utilization stats");
  test::LogCapture log;
  EXPECT_FALSE(collector.collectSystemStateData());
  EXPECT_EQ(log.texts(ANDROID_LOG_ERROR),
            (std::vector<std::string>{"Stream /sys/class/kgsl/kgsl-3d0/gpubusy_accum is bad"}));
}

TEST(GpuCollector, ASampleCoversTheTimeSinceTheOneBefore) {
  EXPECT_EQ(valuesOf({"1000 10000\n", "3500 20000\n", "3600 20000\n"}),
            (Values{busy(10.0), busy(25.0), busy(0)}));
}

TEST(GpuCollector, EveryLineIsAReadingOfItsOwn) {
  EXPECT_EQ(valuesOf({"1 4\n2 8\n"}), (Values{busy(25.0)}));
  // An empty line reads as zeroes: the counters went back from 4 to 0, and so wrapped to 2^64 - 4.
  EXPECT_EQ(valuesOf({"4 4\n\n"}), (Values{busy(100.0)}));
  EXPECT_EQ(valuesOf({"", "5 10\n", "", "10 20"}),
            (Values{Json::objectValue, busy(50.0), Json::objectValue, busy(50.0)}));
}

TEST(GpuCollector, ACounterThatRunsBackwardsWraps) {
  const Values values = valuesOf({"100 100\n", "50 200\n"});
  EXPECT_GT(values.back()["GpuUtilization_%"].asDouble(), 1e19);
}

TEST(GpuCollector, ReadsTornLinesAsFarAsTheyGo) {
  EXPECT_EQ(valuesOf({"x 5"}), (Values{busy(0)}));
  EXPECT_EQ(valuesOf({"7"}), (Values{busy(0)}));
  EXPECT_EQ(valuesOf({"0 18446744073709551616"}), (Values{busy(0.0)}));
}

TEST(GpuCollector, TheBaselineOutlivesADump) {
  test::Source source;
  GpuCollector collector(kConfig, source.open());
  test::sampleEach(collector, source, {"1 2\n", "2 6\n"});
  EXPECT_EQ(valuesOf(collector), (Values{busy(50.0), busy(25.0)}));
  test::sampleEach(collector, source, {"2 8\n"});
  EXPECT_EQ(valuesOf(collector).back(), busy(0.0));
}
