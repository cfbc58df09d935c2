// The histories that the daemon keeps of the guest's own kernel, and of the files laid over /sys/class.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <fstream>
#include <string>
#include <vector>

#include "Machine.h"
#include "base/Json.h"

namespace {

// The values of one history, newest first.
std::vector<Json::Value> history(const std::string& name) {
  android::os::PersistableBundle bundle;
  EXPECT_TRUE(Daemon::collector()->getSystemContextData(&bundle).isOk());
  const Flat context = below(flatten(bundle), "SystemContextData/");
  const auto text = context.find(name + "_history");
  if (text == context.end()) {
    ADD_FAILURE() << "no " << name << " history";
    return {};
  }
  const auto report = Torv::Base::parseJson(text->second, Torv::Base::JsonRules::Strict);
  if (!report.ok()) {
    ADD_FAILURE() << name << ": " << report.error();
    return {};
  }
  std::vector<Json::Value> values;
  for (const Json::Value& sample : (*report)["time_series"]) values.push_back(sample["v"]);
  return values;
}

bool hasReached(const std::string& name, const std::string& metric, double least, double most) {
  const auto values = history(name);
  return std::any_of(values.begin(), values.end(), [&](const Json::Value& value) {
    return value[metric].asDouble() >= least && value[metric].asDouble() <= most;
  });
}

// The first number behind `label` in one of the kernel's texts.
uint64_t numberAfter(const std::string& path, const std::string& label) {
  const std::string text = test::readFile(path);
  const size_t at = text.find(label);
  EXPECT_NE(at, std::string::npos) << path << " has no " << label;
  return at == std::string::npos ? 0 : std::stoull(text.substr(at + label.size()));
}

TEST(History, PressureIsTheKernelsOwn) {
  const std::pair<const char*, const char*> resources[] = {
      {"psi_cpu", "cpu"}, {"psi_memory", "memory"}, {"psi_io", "io"}};
  for (const auto& [name, file] : resources) {
    const std::string path = std::string("/proc/pressure/") + file;
    const uint64_t before = numberAfter(path, "total=");
    ASSERT_TRUE(fixture::eventually([&, name = name] {
      const auto values = history(name);
      return !values.empty() && values[0]["some_total"].asUInt64() >= before;
    })) << name;
    const auto values = history(name);
    EXPECT_LE(values[0]["some_total"].asUInt64(), numberAfter(path, "total=")) << name;
    EXPECT_EQ(values[0].size(), 8u) << name;
  }
}

TEST(History, BusyProcessorsShowInUtilisationAndPressure) {
  const uint64_t before = numberAfter("/proc/pressure/cpu", "total=");
  std::deque<Child> spinners;
  for (int i = 0; i < 4; ++i) spinners.emplace_back(kApplication, std::vector<std::string>{"spin"});
  EXPECT_TRUE(fixture::eventually([&] {
    return hasReached("cpu_utilization", "CpuUtilization_%", 90, 100) &&
           history("psi_cpu")[0]["some_total"].asUInt64() > before;
  }));
}

TEST(History, MemoryIsTheKernelsOwn) {
  const auto values = history("system_meminfo");
  ASSERT_FALSE(values.empty());
  EXPECT_EQ(values[0]["MemTotal_KB"].asUInt64(), numberAfter("/proc/meminfo", "MemTotal:"));
  const double available = values[0]["MemAvail_%"].asDouble();
  EXPECT_GT(available, 1);
  EXPECT_LT(available, 100);
}

TEST(History, GpuAndBatteryFollowTheirFiles) {
  ASSERT_TRUE(fixture::eventually([] {
    return !history("gpu_utilization").empty() &&
           hasReached("battery_state", "BatteryCharge_%", 74.99, 75.01);
  }));
  std::ofstream("/sys/class/kgsl/kgsl-3d0/gpubusy_accum") << "2500 10000\n";
  std::ofstream("/sys/class/power_supply/battery/charge_counter") << "2000000\n";
  EXPECT_TRUE(fixture::eventually([] {
    return hasReached("gpu_utilization", "GpuUtilization_%", 24.99, 25.01) &&
           hasReached("battery_state", "BatteryCharge_%", 49.99, 50.01);
  }));
}

}  // namespace
