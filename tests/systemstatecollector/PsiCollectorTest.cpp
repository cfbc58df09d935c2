#include "PsiCollector.h"

#include <string>

#include <gtest/gtest.h>

#include "PsiText.h"
#include "Source.h"

using namespace Torv::OS::Diagnostics;
using namespace std::string_literals;

namespace {

const SystemStateCollectorConfig kConfig(60, 1);

Json::Value metricsOf(const std::string& text) {
  test::Source source(text);
  PsiMemCollector collector(kConfig, source.open());
  EXPECT_TRUE(collector.collectSystemStateData());
  const auto values = test::valuesOf(collector, "psi_memory_history");
  return values.empty() ? Json::nullValue : values.front();
}

}  // namespace

TEST(PsiCollector, EachResourceHasItsOwnNames) {
  test::Source source;
  PsiCpuCollector cpu(kConfig, source.open());
  PsiMemCollector memory(kConfig, source.open());
  PsiIoCollector io(kConfig, source.open());
  EXPECT_EQ(cpu.getId(), 1);
  EXPECT_EQ(memory.getId(), 2);
  EXPECT_EQ(io.getId(), 3);
  EXPECT_EQ(cpu.getDescription(), "Returns the PSI information by sampling cpu file in /proc/pressure");
  EXPECT_EQ(memory.getDescription(), "Returns the PSI information by sampling memory file in /proc/pressure");
  EXPECT_EQ(cpu.dumpSystemStateHistory()->count("psi_cpu_history"), 1U);
  EXPECT_EQ(io.dumpSystemStateHistory()->count("psi_io_history"), 1U);
}

TEST(PsiCollector, ReportsTheLinesThatTheKernelHas) {
  EXPECT_EQ(metricsOf(test::recorded("pressure-cpu-4.20")), test::json(R"({
      "some_avg10": 1.53, "some_avg60": 0.87, "some_avg300": 0.2, "some_total": 6227413})"));
  EXPECT_EQ(metricsOf(test::recorded("pressure-cpu-5.13")), test::json(R"({
      "some_avg10": 1.53, "some_avg60": 0.87, "some_avg300": 0.2, "some_total": 6227413,
      "full_avg10": 0.0, "full_avg60": 0.0, "full_avg300": 0.0, "full_total": 0})"));
  EXPECT_EQ(metricsOf(test::recorded("pressure-memory-6.12")), test::json(R"({
      "some_avg10": 12.34, "some_avg60": 3.05, "some_avg300": 100.0, "some_total": 18446744073709551615,
      "full_avg10": 0.12, "full_avg60": 0.03, "full_avg300": 0.01, "full_total": 2113778})"));
}

TEST(PsiCollector, ReportsALineAsFarAsItCanBeRead) {
  EXPECT_EQ(metricsOf(""), test::json("{}"));
  EXPECT_EQ(metricsOf("\n\n"), test::json("{}"));
  EXPECT_EQ(metricsOf("full avg10=1.00 avg60=x avg300=3.00 total=4"), test::json(R"({
      "full_avg10": 1.0, "full_avg60": 0.0, "full_avg300": 0.0, "full_total": 0})"));
  EXPECT_EQ(metricsOf(" "), test::json(R"({"_avg10": 0.0, "_avg60": 0.0, "_avg300": 0.0, "_total": 0})"));
  EXPECT_EQ(metricsOf("somewhat avg10=9.00"), test::json(R"({
      "some_avg10": 0.0, "some_avg60": 0.0, "some_avg300": 0.0, "some_total": 0})"));
  EXPECT_EQ(metricsOf("irq\tavg10= 1.2345 avg60=-2 avg300=1e1total=-1"), test::json(R"({
      "irq_avg10": 1.23, "irq_avg60": -2.0, "irq_avg300": 10.0, "irq_total": 18446744073709551615})"));
  EXPECT_EQ(metricsOf("some avg10=nan avg60=0x10 avg300=7\0 total=5"s), test::json(R"({
      "some_avg10": null, "some_avg60": 16.0, "some_avg300": 7.0, "some_total": 0})"));
  // Of two lines of one kind, the later one holds.
  EXPECT_EQ(metricsOf("some avg10=5.00 avg60=1.00 avg300=1.00 total=1\nsome avg10=0.1234"), test::json(R"({
      "some_avg10": 0.12, "some_avg60": 0.0, "some_avg300": 0.0, "some_total": 0})"));
}

// The quick way must give the very float that scanf would, at every number of digits it takes.
TEST(PsiText, AveragesAreTheNearestFloats) {
  for (const char* const number : {"0.01", "0.1", "33.33", "100.00", "99.99999", "0.123456", "1234567.1",
                                   "16777217.00", "0.1000000001", "12.", ".5", "+1.25"}) {
    const PsiLine line = parsePsiLine("some avg10="s + number + " avg60=1.00 avg300=2.00 total=3");
    EXPECT_EQ(line.avg10, strtof(number, nullptr)) << number;
    EXPECT_EQ(line.total, 3U) << number;
  }
}

TEST(PsiText, TotalsSaturateAtTheLargestNumber) {
  const auto totalOf = [](const char* digits) {
    return parsePsiLine("full avg10=0.00 avg60=0.00 avg300=0.00 total="s + digits).total;
  };
  EXPECT_EQ(totalOf("9999999999999999999"), 9999999999999999999U);
  EXPECT_EQ(totalOf("18446744073709551616"), 18446744073709551615U);
  EXPECT_EQ(totalOf("1234567890123456789012345678901234567890"), 18446744073709551615U);
  EXPECT_EQ(totalOf("12x"), 12U);
  EXPECT_EQ(totalOf(""), 0U);
}
