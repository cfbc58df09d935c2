// The histories that the daemon keeps of the guest's own kernel, and of the files laid over /sys/class.

#include "DeviceTest.h"

#include <fstream>

#include "base/Json.h"

namespace {

// The values of one history, newest first; none while there is no history.
std::vector<Json::Value> history(const std::string& name) {
  const Json::Value text = Daemon::askContext()["SystemContextData"][name + "_history"];
  const auto report = Torv::Base::parseJson(text.asString(), Torv::Base::JsonRules::Strict);
  std::vector<Json::Value> values;
  if (!report.ok()) return values;
  for (const Json::Value& sample : (*report)["time_series"]) values.push_back(sample["v"]);
  return values;
}

// Waits for a sample whose `metric` is between the two.
bool reaches(const std::string& name, const std::string& metric, double least, double most) {
  return fixture::eventually([&] {
    for (const Json::Value& value : history(name)) {
      if (value[metric].asDouble() >= least && value[metric].asDouble() <= most) return true;
    }
    return false;
  });
}

// The first number behind `label` in one of the kernel's texts.
uint64_t numberAfter(const std::string& path, const std::string& label) {
  const std::string text = test::readFile(path);
  const size_t at = text.find(label);
  if (at == std::string::npos) throw std::runtime_error(path + " has no " + label);
  return std::stoull(text.substr(at + label.size()));
}

TEST_F(DeviceTest, pressureIsTheKernelsOwn) {
  for (const std::string name : {"cpu", "memory", "io"}) {
    const std::string path = "/proc/pressure/" + name;
    const auto before = static_cast<double>(numberAfter(path, "total="));
    EXPECT_TRUE(reaches("psi_" + name, "some_total", before, 1e15)) << name;
    const Json::Value newest = history("psi_" + name).at(0);
    EXPECT_LE(newest["some_total"].asUInt64(), numberAfter(path, "total=")) << name;
    EXPECT_EQ(newest.size(), 8u) << name;
  }
}

TEST_F(DeviceTest, busyProcessorsShowInUtilisation) {
  std::vector<std::unique_ptr<fixture::Process>> spinners;
  for (int i = 0; i < 4; ++i) {
    spinners.push_back(std::make_unique<fixture::Process>(
        std::vector<std::string>{"/bin/busybox", "sh", "-c", "while :; do :; done"}));
  }
  EXPECT_TRUE(reaches("cpu_utilization", "CpuUtilization_%", 90, 100));
}

TEST_F(DeviceTest, memoryIsTheKernelsOwn) {
  const auto total = static_cast<double>(numberAfter("/proc/meminfo", "MemTotal:"));
  EXPECT_TRUE(reaches("system_meminfo", "MemTotal_KB", total, total));
  EXPECT_TRUE(reaches("system_meminfo", "MemAvail_%", 1, 100));
}

TEST_F(DeviceTest, gpuAndBatteryFollowTheirFiles) {
  EXPECT_TRUE(reaches("battery_state", "BatteryCharge_%", 74.99, 75.01));
  std::ofstream("/sys/class/kgsl/kgsl-3d0/gpubusy_accum") << "2500 10000\n";
  std::ofstream("/sys/class/power_supply/battery/charge_counter") << "2000000\n";
  EXPECT_TRUE(reaches("gpu_utilization", "GpuUtilization_%", 24.99, 25.01));
  EXPECT_TRUE(reaches("battery_state", "BatteryCharge_%", 49.99, 50.01));
}

}  // namespace
