// From the kernel's texts to metrics, for each source.
#include <filesystem>
#include <string>

#include <android-base/file.h>
#include <gtest/gtest.h>

#include "CpuUsageCollector.h"
#include "GpuCollector.h"
#include "PsiCollector.h"
#include "Source.h"
#include "SystemMemInfoCollector.h"
#include "support/LogCapture.h"

using namespace Torv::OS::Diagnostics;
using namespace std::string_literals;
using test::Strings;

namespace {

Strings psiMetrics(std::initializer_list<std::string_view> texts) {
  return test::metricsOf<PsiMemCollector>("proc/pressure/memory", texts);
}
Strings cpuMetrics(std::initializer_list<std::string_view> texts) {
  return test::metricsOf<CpuUsageCollector>("proc/stat", texts);
}
Strings gpuMetrics(std::initializer_list<std::string_view> texts) {
  return test::metricsOf<GpuCollector>("sys/class/kgsl/kgsl-3d0/gpubusy_accum", texts);
}

std::string recorded(const std::string& name) {
  // An absolute path on a host; on a device the data lies beside the program.
  return test::readFile(std::filesystem::path(android::base::GetExecutableDirectory()) / DIAG_TEST_DATA /
                        name);
}

std::string psi(const std::string& text) {
  return psiMetrics({text}).at(0);
}

std::string psiLine(const std::string& type, const std::string& avg10, const std::string& avg60,
                    const std::string& avg300, const std::string& total) {
  return "\"" + type + "_avg10\":" + avg10 + ",\"" + type + "_avg300\":" + avg300 + ",\"" + type +
         "_avg60\":" + avg60 + ",\"" + type + "_total\":" + total;
}

Strings utilizations(const std::string& name, const Strings& percents) {
  Strings lines;
  for (const std::string& p : percents) lines.push_back(p.empty() ? "{}" : "{\"" + name + "\":" + p + "}");
  return lines;
}

Strings cpu(const Strings& percents) {
  return utilizations("CpuUtilization_%", percents);
}
Strings gpu(const Strings& percents) {
  return utilizations("GpuUtilization_%", percents);
}

// The metrics of a meminfo text, followed by "!" if the log says that they are incomplete.
std::string memInfo(const std::string& text) {
  const test::LogCapture log;
  std::string line = test::metricsOf<SystemMemInfoCollector>("proc/meminfo", {text}).at(0);
  if (log.count("Did not find all required metrics in /proc/meminfo") > 0) line += "!";
  return line;
}

}  // namespace

TEST(PsiCollectorTest, reportsTheLinesThatTheKernelHas) {
  const std::string some = psiLine("some", "1.53", "0.87", "0.2", "6227413");
  EXPECT_EQ(psi(recorded("pressure-cpu-4.20")), "{" + some + "}");
  EXPECT_EQ(psi(recorded("pressure-cpu-5.13")),
            "{" + psiLine("full", "0.0", "0.0", "0.0", "0") + "," + some + "}");
  EXPECT_EQ(psi(recorded("pressure-memory-6.12")),
            "{" + psiLine("full", "0.12", "0.03", "0.01", "2113778") + "," +
                psiLine("some", "12.34", "3.05", "100.0", "18446744073709551615") + "}");
}

// The fuzz targets compare the parsers with sscanf and streams over any other text.
TEST(PsiCollectorTest, reportsALineAsFarAsItCanBeRead) {
  EXPECT_EQ(psi("\n\n"), "{}");
  EXPECT_EQ(psi("some avg10=nan avg60=-2 avg300=7\0 total=5"s),
            "{" + psiLine("some", "null", "-2.0", "7.0", "0") + "}");
  EXPECT_EQ(psi("some avg10=5.00 avg60=1.00 avg300=1.00 total=1\nsome avg10=0.1234"),
            "{" + psiLine("some", "0.12", "0.0", "0.0", "0") + "}");
}

TEST(CpuUsageCollectorTest, aSampleCoversTheTimeSinceTheOneBeforeAndTheFirstTheTimeSinceBoot) {
  EXPECT_EQ(cpuMetrics({"cpu  10 0 10 70 10\n", "cpu  30 10 30 200 30\n"}), cpu({"20.0", "25.0"}));
  // If no time has passed or counters went backwards, it is an integer.
  EXPECT_EQ(cpuMetrics({"cpu 50 0 0 50", "cpu 50 0 0 50", "cpu 40 0 0 50", "cpu 50 0 0 50"}),
            cpu({"50.0", "0", "0", "100.0"}));
  EXPECT_EQ(cpuMetrics({"cpu 0 0 0 100", "cpu 200 0 0 50"}), cpu({"0.0", "100.0"}));
  // Samples without an aggregate line leave the baseline as it is.
  EXPECT_EQ(cpuMetrics({"cpu 10 0 0 10", "cpu0 99 0 0 1\n", "", "the cpu 5 6\n", "cpu 10 0 0 110"}),
            cpu({"50.0", "", "", "", "0.0"}));
}

TEST(CpuUsageCollectorTest, readsTheTextsOfEveryKernel) {
  std::string many = "cpu  2560 0 0 7680 0 0 0 0 0 0\n";
  for (int i = 0; i < 256; ++i) many += "cpu" + std::to_string(i) + " 10 0 0 30 0 0 0 0 0 0\n";
  EXPECT_EQ(cpuMetrics({many}), cpu({"25.0"}));
  EXPECT_EQ(cpuMetrics({recorded("stat-10-columns-6.12")}), cpu({"2.55"}));
  EXPECT_EQ(cpuMetrics({recorded("stat-8-columns")}), cpu({"6.01"}));
  EXPECT_EQ(cpuMetrics({recorded("stat-7-columns")}), cpu({"6.01"}));
  // User and nice include the time of guests.
  EXPECT_EQ(cpuMetrics({"cpu 60 20 0 20 0 0 0 0 50 20", "cpu 160 40 0 40 0 0 0 0 150 40"}),
            cpu({"80.0", "85.71"}));
}

TEST(CpuUsageCollectorTest, theBaselineOutlivesADump) {
  const test::Source source("proc/stat", "cpu 50 0 0 50\n");
  CpuUsageCollector collector(SystemStateCollectorConfig(60, 2), source.open());
  collector.collectSystemStateData();
  EXPECT_EQ(test::metrics(collector), cpu({"50.0"}));
  EXPECT_EQ(test::metrics(collector), cpu({"0"}));
}

TEST(GpuCollectorTest, everyLineCoversTheTimeSinceTheOneBefore) {
  EXPECT_EQ(gpuMetrics({"1000 10000\n", "3500 20000\n", "", "3600 20000\n"}), gpu({"10.0", "25.0", "", "0"}));
  EXPECT_EQ(gpuMetrics({"1 4\n2 8\n"}), gpu({"25.0"}));
  // Counters that went backwards wrap around.
  EXPECT_EQ(gpuMetrics({"100 100\n", "50 200\n"}), gpu({"100.0", "1.84467440737096e+19"}));
}

TEST(SystemMemInfoCollectorTest, reportsFiveFiguresAndTheShareAvailable) {
  EXPECT_EQ(memInfo(recorded("meminfo-4.14")),
            R"({"Buffers_KB":59996,"Cached_KB":1624416,"MemAvail_%":45.55,"MemAvailable_KB":1729664,)"
            R"("MemFree_KB":151692,"MemTotal_KB":3796948})");
  EXPECT_EQ(memInfo(recorded("meminfo-6.12")),
            R"({"Buffers_KB":620,"Cached_KB":50640,"MemAvail_%":98.86,"MemAvailable_KB":24403828,)"
            R"("MemFree_KB":24471780,"MemTotal_KB":24684092})");
  EXPECT_EQ(memInfo(recorded("meminfo-without-available")),
            R"({"Buffers_KB":102332,"Cached_KB":816416,"MemFree_KB":6543216,"MemTotal_KB":8174240}!)");
  EXPECT_EQ(memInfo("MemTotal: 0\nMemFree: 0\nMemAvailable: 0\n"),
            R"({"MemAvailable_KB":0,"MemFree_KB":0,"MemTotal_KB":0}!)");
  // A name that comes twice counts twice: these are three lines, although MemAvailable is missing.
  EXPECT_EQ(memInfo("MemTotal: 4\nMemTotal: 8\nMemFree: 1\n"),
            R"({"MemAvail_%":0.0,"MemFree_KB":1,"MemTotal_KB":8})");
}
