#include "systemstatecollector/SystemStateCollectorManager.h"

#include <chrono>
#include <future>
#include <thread>

#include "BatteryCollector.h"
#include "Source.h"
#include "support/LogCapture.h"

using namespace Torv::OS::Diagnostics;
using std::chrono::milliseconds, std::chrono::steady_clock;
using test::Strings;
using testing::ElementsAre;

namespace {

class FakeCollector : public SystemStateCollector {
 public:
  FakeCollector(uint8_t id, uint32_t rate, std::function<bool()> sample)
      : SystemStateCollector(SystemStateCollectorConfig(60, rate)), mId(id), mSample(std::move(sample)) {}

  uint8_t getId() const override { return mId; }
  std::string getDescription() const override { return "fake"; }
  bool collectSystemStateData() override { return mSample(); }
  std::unique_ptr<History> dumpSystemStateHistory() override { return nullptr; }

 private:
  const uint8_t mId;
  const std::function<bool()> mSample;
};

constexpr CollectorsMutex::Patience kPatience{milliseconds(50), milliseconds(1500), 2};

class SystemStateCollectorManagerTest : public testing::Test {
 protected:
  void add(uint8_t id, uint32_t rate, std::function<bool()> sample) {
    mManager.addCollector(std::make_unique<FakeCollector>(id, rate, std::move(sample)));
  }

  test::LogCapture mLog;
  PollStatistics mStatistics;
  SystemStateCollectorManager mManager{mStatistics, kPatience};
};

TEST_F(SystemStateCollectorManagerTest, samplesEachInItsTurnWhateverAnotherDoes) {
  std::vector<int> samples(4);
  for (const uint8_t rate : {0, 1, 2, 3}) {
    add(rate, rate, [&samples, rate] { return ++samples[rate] > 0 && rate != 3; });
  }
  add(1, 1, [] { return false; });
  EXPECT_EQ(mManager.collectorCount(), 4U) << "the first of an id stays";
  const std::vector<int> afterEach[] = {{0, 1, 1, 1}, {0, 2, 1, 1}, {0, 3, 2, 1}, {0, 4, 2, 2}};
  for (const std::vector<int>& expected : afterEach) {
    mManager.pollCollectors();
    EXPECT_EQ(samples, expected);
  }
  EXPECT_TRUE(mManager.dumpSystemStateHistory()->empty()) << "none of them has any";
  EXPECT_EQ(mLog.texts(ANDROID_LOG_ERROR), Strings(2, "Failed to read metrics for collector 3"));
}

TEST_F(SystemStateCollectorManagerTest, twoCallersWaitForADriverThatHangsAndTheOthersDoNot) {
  std::promise<void> entered, leave;
  add(9, 1, [&] {
    entered.set_value();
    leave.get_future().wait();
    return true;
  });
  std::thread poll([this] { mManager.pollCollectors(); });
  entered.get_future().wait();
  const auto dumpTime = [this] {
    const auto start = steady_clock::now();
    EXPECT_TRUE(mManager.dumpSystemStateHistory()->empty());
    return steady_clock::now() - start;
  };
  std::vector<std::future<steady_clock::duration>> waits;
  for (int i = 0; i < 8; ++i) waits.push_back(std::async(std::launch::async, dumpTime));
  int patient = 0;
  for (auto& wait : waits) {
    if (wait.get() > (kPatience.busy + kPatience.stuck) / 2) ++patient;
  }
  EXPECT_EQ(patient, 2);
  EXPECT_LT(dumpTime(), kPatience.busy) << "nobody waits for a driver that has hung so long";
  EXPECT_EQ(mLog.texts(ANDROID_LOG_WARN),
            Strings{"Collector 9 hangs in its source; system contexts go out without histories"});
  mLog.clear();
  leave.set_value();
  poll.join();
  EXPECT_EQ(mLog.count("9 system contexts went out without histories"), 1U);
}

TEST_F(SystemStateCollectorManagerTest, warnsOfAPollThatTookTooLong) {
  add(1, 1, [] {
    std::this_thread::sleep_for(milliseconds(102));
    return true;
  });
  mManager.pollCollectors();
  EXPECT_THAT(mLog.texts(ANDROID_LOG_WARN),
              ElementsAre(testing::MatchesRegex("Time limit exceeded while polling collectors, max time "
                                                "[1-9][0-9]+, avg exceeded time: [1-9][0-9]* ms")));
}

// All seven, on the files of a device.
class StandardCollectorsTest : public testing::Test {
 protected:
  // Writes files in which every measured value is derived from `step`.
  void writeDevice(int step) const {
    const std::string n = std::to_string(step);
    for (const std::string resource : {"cpu", "memory", "io"}) {
      mHost.write("proc/pressure/" + resource, "some avg10=0.00 avg60=0.00 avg300=0.00 total=" + n +
                                                   std::to_string(resource.size()) + "\n");
    }
    mHost.write("proc/stat", "cpu  " + n + "00 0 0 " + n + "00 0 0 0 0 0 0\ncpu0 1 2 3 4\n");
    mHost.write("proc/meminfo", "MemTotal: 100 kB\nMemFree: 1 kB\nMemAvailable: " + n + " kB\n");
    mHost.write("sys/class/kgsl/kgsl-3d0/gpubusy_accum", n + "00 " + n + "000\n");
    mHost.write("sys/class/power_supply/battery/charge_counter", n + "\n");
    mHost.write("sys/class/power_supply/battery/charge_full", "10\n");
  }

  std::unique_ptr<SystemStateCollectorManager> makeManager() {
    writeDevice(1);
    return SystemStateCollectorManager::makeDefaultManager(mStatistics, mChargeFiles);
  }

  const test::LogCapture mLog;
  const test::HostDir mHost;
  PollStatistics mStatistics;
  ChargeFiles mChargeFiles;
};

TEST_F(StandardCollectorsTest, allSevenFollowTheDevicesFiles) {
  const auto manager = makeManager();
  for (int step = 1; step <= 3; ++step) {
    writeDevice(step);
    manager->pollCollectors();
  }
  // The fourth poll does not sample the collectors of rate 2. Of the others, one finds an empty text.
  mHost.write("proc/meminfo", "");
  manager->pollCollectors();

  const std::tuple<const char*, const char*, std::vector<double>> rows[] = {
      {"psi_cpu_history", "some_total", {33, 33, 23, 13}},
      {"psi_memory_history", "some_total", {36, 36, 26, 16}},
      {"psi_io_history", "some_total", {32, 32, 22, 12}},
      {"system_meminfo_history", "MemAvail_%", {0, 3, 2, 1}},
      {"cpu_utilization_history", "CpuUtilization_%", {50, 50}},
      {"gpu_utilization_history", "GpuUtilization_%", {10, 10}},
      {"battery_state_history", "BatteryCharge_%", {30, 10}}};
  const auto histories = manager->dumpSystemStateHistory();
  EXPECT_EQ(histories->size(), std::size(rows));
  for (const auto& [history, metric, newestFirst] : rows) {
    std::vector<double> values;
    const Json::Value report = test::json(histories->at(history));
    for (const Json::Value& entry : report["time_series"]) values.push_back(entry["v"][metric].asDouble());
    EXPECT_EQ(values, newestFirst) << history;
  }
}

TEST_F(StandardCollectorsTest, pollsAndDumpsGoOnAtTheSameTime) {
  const auto manager = makeManager();
  const auto dump = [&] {
    for (int i = 0; i < 40; ++i) EXPECT_EQ(manager->dumpSystemStateHistory()->size(), 7U);
  };
  const auto first = std::async(std::launch::async, dump);
  const auto second = std::async(std::launch::async, dump);
  for (int poll = 0; poll < 200; ++poll) manager->pollCollectors();
  first.wait();
  second.wait();
  const auto histories = manager->dumpSystemStateHistory();
  for (const auto& [name, text] : *histories) {
    const Json::Value report = test::json(text);
    EXPECT_EQ(report["time_series"].size(), 60U) << name;
    EXPECT_LE(report["time_series"][59]["dt_ms"].asUInt64(), 60'000U) << name << " is not of the last minute";
  }
}

}  // namespace
