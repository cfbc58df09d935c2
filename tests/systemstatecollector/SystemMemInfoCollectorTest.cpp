#include "SystemMemInfoCollector.h"

#include <string>

#include <gtest/gtest.h>

#include "Source.h"
#include "support/LogCapture.h"

using namespace Torv::OS::Diagnostics;

namespace {

constexpr char kIncomplete[] = "Did not find all required metrics in /proc/meminfo";
const SystemStateCollectorConfig kConfig(60, 1);

struct Outcome {
  Json::Value metrics;
  bool incomplete;
};

Outcome outcomeOf(const std::string& text) {
  test::Source source(text);
  SystemMemInfoCollector collector(kConfig, source.open());
  test::LogCapture log;
  EXPECT_TRUE(collector.collectSystemStateData());
  const auto values = test::valuesOf(collector, "system_meminfo_history");
  return {values.empty() ? Json::nullValue : values.front(), log.count(kIncomplete) == 1};
}

void expectComplete(const std::string& text, const std::string& expected) {
  const Outcome outcome = outcomeOf(text);
  EXPECT_EQ(outcome.metrics, test::json(expected));
  EXPECT_FALSE(outcome.incomplete);
}

void expectIncomplete(const std::string& text, const std::string& expected) {
  const Outcome outcome = outcomeOf(text);
  EXPECT_EQ(outcome.metrics, test::json(expected));
  EXPECT_TRUE(outcome.incomplete);
}

}  // namespace

TEST(SystemMemInfoCollector, HasItsNames) {
  test::Source source;
  SystemMemInfoCollector collector(kConfig, source.open());
  EXPECT_EQ(collector.getId(), 4);
  EXPECT_EQ(collector.getDescription(), "Provides system memory information");
}

TEST(SystemMemInfoCollector, ReportsFiveFiguresAndTheShareAvailable) {
  expectComplete(test::recorded("meminfo-4.14"), R"({
      "MemTotal_KB": 3796948, "MemFree_KB": 151692, "MemAvailable_KB": 1729664, "Buffers_KB": 59996,
      "Cached_KB": 1624416, "MemAvail_%": 45.55})");
  expectComplete(test::recorded("meminfo-6.12"), R"({
      "MemTotal_KB": 24684092, "MemFree_KB": 24471780, "MemAvailable_KB": 24403828, "Buffers_KB": 620,
      "Cached_KB": 50640, "MemAvail_%": 98.86})");
}

TEST(SystemMemInfoCollector, SaysWhenTheShareCannotBeKnown) {
  expectIncomplete(test::recorded("meminfo-without-available"), R"({
      "MemTotal_KB": 8174240, "MemFree_KB": 6543216, "Buffers_KB": 102332, "Cached_KB": 816416})");
  expectIncomplete("", "{}");
  expectIncomplete("MemTotal: 0 kB\nMemFree: 0 kB\nMemAvailable: 0 kB\n",
                   R"({"MemTotal_KB": 0, "MemFree_KB": 0, "MemAvailable_KB": 0})");
  // A name without its colon loses its last letter; one with another letter there is taken.
  expectIncomplete("MemTotal 5 kB\nMemFreeX 6\n", R"({"MemFree_KB": 6})");
}

TEST(SystemMemInfoCollector, LooksNoFurtherThanTheLastOfTheFive) {
  expectComplete(
      "Cached: 5\nBuffers: 4\n\nMemAvailable: 2\nMemFree: 1\nMemTotal: 8\nMemTotal: 4\nCached: 6\n",
      R"({"MemTotal_KB": 8, "MemFree_KB": 1, "MemAvailable_KB": 2, "Buffers_KB": 4,
                     "Cached_KB": 5, "MemAvail_%": 25.0})");
}

TEST(SystemMemInfoCollector, CountsLinesRatherThanNames) {
  expectComplete("MemTotal: 4\nMemTotal: 8\nMemFree: 1\n",
                 R"({"MemTotal_KB": 8, "MemFree_KB": 1, "MemAvail_%": 0.0})");
  expectIncomplete("MemTotal: 4\nMemTotal: 8\nMemFree: 1\nMemAvailable: 2\n",
                   R"({"MemTotal_KB": 8, "MemFree_KB": 1, "MemAvailable_KB": 2})");
}

TEST(SystemMemInfoCollector, ReadsOddNumbersAsAStreamDoes) {
  expectComplete("MemTotal: 99999999999 kB\nMemFree: kB\nMemAvailable: -1 kB\nBuffers:\nCached: 12x",
                 R"({"MemTotal_KB": 4294967295, "MemFree_KB": 0, "MemAvailable_KB": 4294967295,
                     "Buffers_KB": 0, "Cached_KB": 12, "MemAvail_%": 100.0})");
}
