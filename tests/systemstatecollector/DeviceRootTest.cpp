// The standard collectors together: on a device's files, and on the real ones of this machine.
#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ChargeFiles.h"
#include "Source.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"
#include "systemstatecollector/SystemStateCollectorManager.h"

using namespace Torv::OS::Diagnostics;

namespace {

// A device of which everything that is measured stands at `step`.
void writeDevice(const test::TempDir& root, int step) {
  const std::string n = std::to_string(step);
  const std::string line = "some avg10=" + n + ".50 avg60=0.00 avg300=0.00 total=" + n;
  root.write("proc/pressure/cpu", line + "1\n");
  root.write("proc/pressure/memory", line + "2\n");
  root.write("proc/pressure/io", line + "3\n");
  root.write("proc/stat", "cpu  " + n + "00 0 0 " + n + "00 0 0 0 0 0 0\ncpu0 1 2 3 4\n");
  root.write("proc/meminfo", "MemTotal: 100 kB\nMemFree: 1 kB\nMemAvailable: " + n + " kB\n");
  root.write("sys/class/kgsl/kgsl-3d0/gpubusy_accum", n + "00 " + n + "000\n");
  root.write("sys/class/power_supply/battery/charge_counter", n + "\n");
  root.write("sys/class/power_supply/battery/charge_full", "10\n");
}

// The `metric` of each sample of a history, newest first.
std::vector<double> series(const std::unordered_map<std::string, std::string>& histories,
                           const std::string& name, const std::string& metric) {
  std::vector<double> values;
  const Json::Value report = test::json(histories.at(name));
  for (const Json::Value& entry : report["time_series"]) {
    values.push_back(entry["v"][metric].asDouble());
  }
  return values;
}

using Doubles = std::vector<double>;

}  // namespace

TEST(DeviceRoot, AllSevenFollowTheDevicesFiles) {
  const test::TempDir root;
  writeDevice(root, 1);
  const test::ScopedEnv environment("TORV_DEVICE_ROOT", root.path());
  test::LogCapture log;
  PollStatistics statistics;
  ChargeFiles chargeFiles;
  const auto manager = SystemStateCollectorManager::makeDefaultManager(statistics, chargeFiles);
  ASSERT_NE(manager, nullptr);
  ASSERT_EQ(manager->collectorCount(), 7U);
  for (int step = 1; step <= 3; ++step) {
    writeDevice(root, step);
    manager->pollCollectors();
  }
  // The fourth poll is none of the slower ones' turns, and of the others only one has lost its text.
  root.write("proc/meminfo", "");
  manager->pollCollectors();

  const auto histories = manager->dumpSystemStateHistory();
  EXPECT_EQ(histories->size(), 7U);
  EXPECT_EQ(series(*histories, "psi_cpu_history", "some_total"), (Doubles{31, 31, 21, 11}));
  EXPECT_EQ(series(*histories, "psi_memory_history", "some_total"), (Doubles{32, 32, 22, 12}));
  EXPECT_EQ(series(*histories, "psi_io_history", "some_avg10"), (Doubles{3.5, 3.5, 2.5, 1.5}));
  EXPECT_EQ(series(*histories, "system_meminfo_history", "MemAvail_%"), (Doubles{0, 3, 2, 1}));
  EXPECT_EQ(series(*histories, "cpu_utilization_history", "CpuUtilization_%"), (Doubles{50, 50}));
  EXPECT_EQ(series(*histories, "gpu_utilization_history", "GpuUtilization_%"), (Doubles{10, 10}));
  EXPECT_EQ(series(*histories, "battery_state_history", "BatteryCharge_%"), (Doubles{30, 10}));
}

TEST(DeviceRoot, PollsAndDumpsGoOnAtTheSameTime) {
  const test::TempDir root;
  writeDevice(root, 1);
  const test::ScopedEnv environment("TORV_DEVICE_ROOT", root.path());
  test::LogCapture log;
  PollStatistics statistics;
  ChargeFiles chargeFiles;
  const auto manager = SystemStateCollectorManager::makeDefaultManager(statistics, chargeFiles);
  ASSERT_NE(manager, nullptr);
  std::atomic<bool> dumping{true};
  std::vector<std::thread> dumpers;
  for (int i = 0; i < 2; ++i) {
    dumpers.emplace_back([&] {
      while (dumping) EXPECT_EQ(manager->dumpSystemStateHistory()->size(), manager->collectorCount());
    });
  }
  for (int poll = 0; poll < 200; ++poll) manager->pollCollectors();
  dumping = false;
  for (std::thread& dumper : dumpers) dumper.join();
  EXPECT_EQ(series(*manager->dumpSystemStateHistory(), "psi_cpu_history", "some_total"), Doubles(60, 11));
}

TEST(DeviceRoot, TheRealFilesOfThisMachineAreReported) {
  const test::ScopedEnv environment("TORV_DEVICE_ROOT", "");
  test::LogCapture log;
  PollStatistics statistics;
  ChargeFiles chargeFiles;
  const auto manager = SystemStateCollectorManager::makeDefaultManager(statistics, chargeFiles);
  ASSERT_NE(manager, nullptr);
  manager->pollCollectors();
  const auto histories = manager->dumpSystemStateHistory();

  std::ifstream meminfo("/proc/meminfo");
  std::string name;
  double totalKb = 0;
  meminfo >> name >> totalKb;
  EXPECT_EQ(series(*histories, "system_meminfo_history", "MemTotal_KB"), (Doubles{totalKb}));
  const Doubles available = series(*histories, "system_meminfo_history", "MemAvail_%");
  ASSERT_EQ(available.size(), 1U);
  EXPECT_GT(available[0], 0);
  EXPECT_LT(available[0], 100);

  const Doubles sinceBoot = series(*histories, "cpu_utilization_history", "CpuUtilization_%");
  ASSERT_EQ(sinceBoot.size(), 1U);
  EXPECT_GT(sinceBoot[0], 0);
  EXPECT_LE(sinceBoot[0], 100);

  for (const std::string resource : {"cpu", "memory", "io"}) {
    std::ifstream pressure("/proc/pressure/" + resource);
    std::string now;
    if (!std::getline(pressure, now)) continue;  // a kernel without PSI, or with PSI turned off
    const Doubles total = series(*histories, "psi_" + resource + "_history", "some_total");
    ASSERT_EQ(total.size(), 1U);
    EXPECT_LE(total[0], std::stod(now.substr(now.find("total=") + 6)));
  }
}
