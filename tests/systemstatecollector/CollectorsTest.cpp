// From the kernel's texts to metrics, for each source.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include <android-base/file.h>

#include "BatteryCollector.h"
#include "CpuUsageCollector.h"
#include "GpuCollector.h"
#include "PsiCollector.h"
#include "Source.h"
#include "SystemMemInfoCollector.h"
#include "support/LogCapture.h"

using namespace Torv::OS::Diagnostics;
using test::Strings;

namespace {

std::string recorded(const std::string& name) {
  // An absolute path on a host; on a device the data lies beside the program.
  return test::readFile(std::filesystem::path(android::base::GetExecutableDirectory()) / DIAG_TEST_DATA /
                        name);
}

std::string psi(const std::string& text) {
  return test::metricsOf<PsiMemCollector>("proc/pressure/memory", {text}).at(0);
}

std::string psiLine(const std::string& type, const std::string& avg10, const std::string& avg60,
                    const std::string& avg300, const std::string& total) {
  return type + "_avg10=" + avg10 + " " + type + "_avg300=" + avg300 + " " + type + "_avg60=" + avg60 + " " +
         type + "_total=" + total;
}

// Samples the texts and expects these percentages; "" stands for a sample without one.
template <typename Collector>
void expectPercents(const std::string& path, const std::string& metric, const Strings& texts,
                    const Strings& percents) {
  Strings expected;
  for (const std::string& p : percents) expected.push_back(p.empty() ? "" : metric + "=" + p);
  EXPECT_EQ(test::metricsOf<Collector>(path, texts), expected);
}

void expectCpu(const Strings& texts, const Strings& percents) {
  expectPercents<CpuUsageCollector>("proc/stat", "CpuUtilization_%", texts, percents);
}

void expectGpu(const Strings& texts, const Strings& percents) {
  expectPercents<GpuCollector>("sys/class/kgsl/kgsl-3d0/gpubusy_accum", "GpuUtilization_%", texts, percents);
}

// The metrics of a meminfo text, followed by "!" if the log says that they are incomplete.
std::string memInfo(const std::string& text) {
  const test::LogCapture log;
  std::string line = test::metricsOf<SystemMemInfoCollector>("proc/meminfo", {text}).at(0);
  if (log.count("Did not find all required metrics in /proc/meminfo") > 0) line += "!";
  return line;
}

TEST(PsiCollectorTest, reportsEachLineAsFarAsItCanBeRead) {
  const std::string some = psiLine("some", "1.53", "0.87", "0.2", "6227413");
  EXPECT_EQ(psi(recorded("pressure-cpu-4.20")), some);
  EXPECT_EQ(psi(recorded("pressure-cpu-5.13")), psiLine("full", "0.0", "0.0", "0.0", "0") + " " + some);
  EXPECT_EQ(psi(recorded("pressure-memory-6.12")),
            psiLine("full", "0.12", "0.03", "0.01", "2113778") + " " +
                psiLine("some", "12.34", "3.05", "100.0", "18446744073709551615"));
  // The fuzz targets compare the parsers with sscanf and streams over any other text.
  EXPECT_EQ(psi("\n\n"), "");
  EXPECT_EQ(psi(std::string("some avg10=nan avg60=-2 avg300=7\0 total=5", 42)),
            psiLine("some", "null", "-2.0", "7.0", "0"));
  EXPECT_EQ(psi("some avg10=5.00 avg60=1.00 avg300=1.00 total=1\nsome avg10=0.1234"),
            psiLine("some", "0.12", "0.0", "0.0", "0"));
}

TEST(CpuUsageCollectorTest, aSampleCoversTheTimeSinceTheOneBeforeAndTheFirstTheTimeSinceBoot) {
  expectCpu({"cpu  10 0 10 70 10\n", "cpu  30 10 30 200 30\n"}, {"20.0", "25.0"});
  // If no time has passed or counters went backwards, it is an integer.
  expectCpu({"cpu 50 0 0 50", "cpu 50 0 0 50", "cpu 40 0 0 50", "cpu 50 0 0 50"},
            {"50.0", "0", "0", "100.0"});
  expectCpu({"cpu 0 0 0 100", "cpu 200 0 0 50"}, {"0.0", "100.0"});
  // Samples without an aggregate line leave the baseline as it is.
  expectCpu({"cpu 10 0 0 10", "cpu0 99 0 0 1\n", "", "the cpu 5 6\n", "cpu 10 0 0 110"},
            {"50.0", "", "", "", "0.0"});
  // User and nice include the time of guests.
  expectCpu({"cpu 60 20 0 20 0 0 0 0 50 20", "cpu 160 40 0 40 0 0 0 0 150 40"}, {"80.0", "85.71"});
  std::string many = "cpu  2560 0 0 7680 0 0 0 0 0 0\n";
  for (int i = 0; i < 256; ++i) many += "cpu" + std::to_string(i) + " 10 0 0 30 0 0 0 0 0 0\n";
  expectCpu({many}, {"25.0"});
  expectCpu({recorded("stat-10-columns-6.12")}, {"2.55"});
  expectCpu({recorded("stat-8-columns")}, {"6.01"});
  expectCpu({recorded("stat-7-columns")}, {"6.01"});
}

TEST(CpuUsageCollectorTest, theBaselineOutlivesADump) {
  const test::HostDir host;
  CpuUsageCollector collector({60, 2}, std::ifstream(host.write("stat", "cpu 50 0 0 50\n")));
  collector.collectSystemStateData();
  EXPECT_EQ(test::metrics(collector), Strings{"CpuUtilization_%=50.0"});
  EXPECT_EQ(test::metrics(collector), Strings{"CpuUtilization_%=0"});
}

TEST(GpuCollectorTest, everyLineCoversTheTimeSinceTheOneBefore) {
  expectGpu({"1000 10000\n", "3500 20000\n", "", "3600 20000\n"}, {"10.0", "25.0", "", "0"});
  expectGpu({"1 4\n2 8\n"}, {"25.0"});
  // Counters that went backwards wrap around.
  expectGpu({"100 100\n", "50 200\n"}, {"100.0", "1.84467440737096e+19"});
}

TEST(SystemMemInfoCollectorTest, reportsFiveFiguresAndTheShareAvailable) {
  EXPECT_EQ(memInfo(recorded("meminfo-4.14")),
            "Buffers_KB=59996 Cached_KB=1624416 MemAvail_%=45.55 MemAvailable_KB=1729664 MemFree_KB=151692 "
            "MemTotal_KB=3796948");
  EXPECT_EQ(memInfo(recorded("meminfo-6.12")),
            "Buffers_KB=620 Cached_KB=50640 MemAvail_%=98.86 MemAvailable_KB=24403828 MemFree_KB=24471780 "
            "MemTotal_KB=24684092");
  EXPECT_EQ(memInfo(recorded("meminfo-without-available")),
            "Buffers_KB=102332 Cached_KB=816416 MemFree_KB=6543216 MemTotal_KB=8174240!");
  EXPECT_EQ(memInfo("MemTotal: 0\nMemFree: 0\nMemAvailable: 0\n"),
            "MemAvailable_KB=0 MemFree_KB=0 MemTotal_KB=0!");
  // A name that comes twice counts twice: these are three lines, although MemAvailable is missing.
  EXPECT_EQ(memInfo("MemTotal: 4\nMemTotal: 8\nMemFree: 1\n"), "MemAvail_%=0.0 MemFree_KB=1 MemTotal_KB=8");
}

TEST(SourceTest, whatIsNoRegularFileIsAMissingSourceAtOnce) {
  const test::HostDir host;
  host.write("proc/pressure/io/directory", "");
  ASSERT_EQ(symlink("/dev/zero", host.path("proc/stat").c_str()), 0);
  const std::string gpu = host.write("sys/class/kgsl/kgsl-3d0/gpubusy_accum", "");
  ASSERT_TRUE(std::filesystem::remove(gpu) && mkfifo(gpu.c_str(), 0666) == 0);
  host.write("sys/class/power_supply/battery/charge_counter/directory", "");
  const test::LogCapture log;
  const SystemStateCollectorConfig config(60, 1);
  EXPECT_TRUE(PsiIoCollector::init(config) == nullptr && CpuUsageCollector::init(config) == nullptr &&
              GpuCollector::init(config) == nullptr && BatteryCollector::init(config) == nullptr);
  EXPECT_THAT(log.texts(ANDROID_LOG_ERROR),
              testing::ElementsAre("Failed to open /proc/pressure/io", "Failed to open /proc/stat",
                                   "Failed to open /sys/class/kgsl/kgsl-3d0/gpubusy_accum",
                                   "Failed to open /sys/class/power_supply/battery/charge_counter"));
}

class BatteryCollectorTest : public testing::Test {
 protected:
  void set(std::string_view counter, std::string_view full) const {
    mHost.write("sys/class/power_supply/battery/charge_counter", counter);
    mHost.write("sys/class/power_supply/battery/charge_full", full);
  }

  std::unique_ptr<BatteryCollector> makeCollector(uint32_t maxSamples) {
    return BatteryCollector::init(SystemStateCollectorConfig(maxSamples, 2), mFiles);
  }

  // Samples while the files hold these texts and expects this charge.
  void expectPercent(BatteryCollector& collector, std::string_view counter, std::string_view full,
                     const std::string& percent) const {
    set(counter, full);
    EXPECT_TRUE(collector.collectSystemStateData());
    EXPECT_EQ(test::metrics(collector).at(0), "BatteryCharge_%=" + percent) << counter << "/" << full;
  }

  const test::HostDir mHost;
  ChargeFiles mFiles;
};

TEST_F(BatteryCollectorTest, reportsTheShareOfTheFullChargeOrWhatTheSlotHeldIfAReadingFails) {
  set("", "");
  const auto collector = makeCollector(2);
  expectPercent(*collector, "3000\n", "4000\n", "75.0");
  expectPercent(*collector, "1000", "4000", "25.0");  // a number needs no newline
  expectPercent(*collector, "3\n", "0\n", "75.0");
  expectPercent(*collector, "", "4\n", "25.0");
  expectPercent(*collector, "3\n", " \n", "75.0");
  expectPercent(*collector, "5000\n", "4000\n", "125.0");
  expectPercent(*collector, "abc", "2\n", "0.0");  // text that is no number is no failed reading
  expectPercent(*collector, "1000000000000\n", "1\n", "99999999590400.0");  // the ratio is a 32-bit float
}

TEST_F(BatteryCollectorTest, needsBothFilesAndTriesEachOnceUntilACollectorGoes) {
  const test::LogCapture log;
  mHost.write("sys/class/power_supply/battery/charge_counter", "1\n");
  EXPECT_EQ(makeCollector(1), nullptr);
  set("1\n", "4\n");
  EXPECT_EQ(makeCollector(1), nullptr);
  EXPECT_EQ(log.texts(ANDROID_LOG_ERROR),
            Strings(2, "Failed to open /sys/class/power_supply/battery/charge_full"));
  mFiles.release();
  auto first = makeCollector(1);
  const auto second = makeCollector(1);
  expectPercent(*second, "1\n", "4\n", "25.0");
  first.reset();  // closes the file of the full charge
  expectPercent(*second, "2\n", "4\n", "25.0");
  expectPercent(*makeCollector(1), "2\n", "4\n", "50.0");
}

}  // namespace
