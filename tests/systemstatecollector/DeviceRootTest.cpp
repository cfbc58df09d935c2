// All standard collectors together, on the files of a device and on the real files of this machine.
#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "BatteryCollector.h"
#include "Source.h"
#include "support/LogCapture.h"
#include "systemstatecollector/SystemStateCollectorManager.h"

using namespace Torv::OS::Diagnostics;

namespace {

using Doubles = std::vector<double>;

class DeviceRootTest : public testing::Test {
 protected:
  // Writes a device root in which every measured value is derived from `step`.
  void writeDevice(int step) const {
    const std::string n = std::to_string(step);
    for (const std::string resource : {"cpu", "memory", "io"}) {
      mRoot.write("proc/pressure/" + resource, "some avg10=0.00 avg60=0.00 avg300=0.00 total=" + n +
                                                   std::to_string(resource.size()) + "\n");
    }
    mRoot.write("proc/stat", "cpu  " + n + "00 0 0 " + n + "00 0 0 0 0 0 0\ncpu0 1 2 3 4\n");
    mRoot.write("proc/meminfo", "MemTotal: 100 kB\nMemFree: 1 kB\nMemAvailable: " + n + " kB\n");
    mRoot.write("sys/class/kgsl/kgsl-3d0/gpubusy_accum", n + "00 " + n + "000\n");
    mRoot.write("sys/class/power_supply/battery/charge_counter", n + "\n");
    mRoot.write("sys/class/power_supply/battery/charge_full", "10\n");
  }

  std::unique_ptr<SystemStateCollectorManager> makeManager(const std::string& root) {
    const test::ScopedEnv environment("TORV_DEVICE_ROOT", root);
    return SystemStateCollectorManager::makeDefaultManager(mStatistics, mChargeFiles);
  }

  // Returns the `metric` of each sample of a history, newest first.
  static Doubles series(const std::unordered_map<std::string, std::string>& histories,
                        const std::string& name, const std::string& metric) {
    Doubles values;
    const Json::Value report = test::json(histories.at(name));
    for (const Json::Value& entry : report["time_series"]) values.push_back(entry["v"][metric].asDouble());
    return values;
  }

  const test::LogCapture mLog;
  const test::TempDir mRoot;
  PollStatistics mStatistics;
  ChargeFiles mChargeFiles;
};

}  // namespace

TEST_F(DeviceRootTest, allSevenFollowTheDevicesFiles) {
  writeDevice(1);
  const auto manager = makeManager(mRoot.path());
  ASSERT_EQ(manager->collectorCount(), 7U);
  for (int step = 1; step <= 3; ++step) {
    writeDevice(step);
    manager->pollCollectors();
  }
  // The fourth poll does not sample the collectors of rate 2. Of the others, one finds an empty text.
  mRoot.write("proc/meminfo", "");
  manager->pollCollectors();

  const auto histories = manager->dumpSystemStateHistory();
  EXPECT_EQ(histories->size(), 7U);
  EXPECT_EQ(series(*histories, "psi_cpu_history", "some_total"), (Doubles{33, 33, 23, 13}));
  EXPECT_EQ(series(*histories, "psi_memory_history", "some_total"), (Doubles{36, 36, 26, 16}));
  EXPECT_EQ(series(*histories, "psi_io_history", "some_total"), (Doubles{32, 32, 22, 12}));
  EXPECT_EQ(series(*histories, "system_meminfo_history", "MemAvail_%"), (Doubles{0, 3, 2, 1}));
  EXPECT_EQ(series(*histories, "cpu_utilization_history", "CpuUtilization_%"), (Doubles{50, 50}));
  EXPECT_EQ(series(*histories, "gpu_utilization_history", "GpuUtilization_%"), (Doubles{10, 10}));
  EXPECT_EQ(series(*histories, "battery_state_history", "BatteryCharge_%"), (Doubles{30, 10}));
}

TEST_F(DeviceRootTest, pollsAndDumpsGoOnAtTheSameTime) {
  writeDevice(1);
  const auto manager = makeManager(mRoot.path());
  std::atomic<bool> dumping{true};
  const auto dump = [&] {
    while (dumping) EXPECT_EQ(manager->dumpSystemStateHistory()->size(), manager->collectorCount());
  };
  std::thread dumpers[] = {std::thread(dump), std::thread(dump)};
  for (int poll = 0; poll < 200; ++poll) manager->pollCollectors();
  dumping = false;
  for (std::thread& dumper : dumpers) dumper.join();
  const auto histories = manager->dumpSystemStateHistory();
  for (const auto& [name, text] : *histories) {
    const Json::Value report = test::json(text);
    EXPECT_EQ(report["time_series"].size(), 60U) << name;
    EXPECT_LE(report["time_series"][59]["dt_ms"].asUInt64(), 60'000U) << name << " is not of the last minute";
  }
}

TEST_F(DeviceRootTest, theRealFilesOfThisMachineAreReported) {
  const auto manager = makeManager("");
  ASSERT_NE(manager, nullptr);
  manager->pollCollectors();
  const auto histories = manager->dumpSystemStateHistory();

  std::ifstream memInfo("/proc/meminfo");
  std::string name;
  double totalKb = 0;
  memInfo >> name >> totalKb;
  EXPECT_EQ(series(*histories, "system_meminfo_history", "MemTotal_KB"), (Doubles{totalKb}));
  const double sinceBoot = series(*histories, "cpu_utilization_history", "CpuUtilization_%").at(0);
  EXPECT_GT(sinceBoot, 0);
  EXPECT_LE(sinceBoot, 100);
}
