#include "systemstatecollector/SystemStateCollectorManager.h"

#include <atomic>
#include <chrono>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ChargeFiles.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

using namespace Torv::OS::Diagnostics;
using testing::ElementsAre;
using testing::MatchesRegex;

namespace {

using Histories = std::unordered_map<std::string, std::string>;

// A collector whose work is to tell that it was asked.
class FakeCollector : public SystemStateCollector {
 public:
  struct Script {
    uint8_t id = 1;
    uint32_t rate = 1;
    bool works = true;
    std::chrono::milliseconds takes{0};
    std::unique_ptr<Histories> history;  // null: the collector returns null
    std::atomic<int> samples{0};
  };

  explicit FakeCollector(Script& script)
      : SystemStateCollector(SystemStateCollectorConfig(60, script.rate)), mScript(script) {}

  uint8_t getId() const override { return mScript.id; }
  std::string getDescription() const override { return "fake"; }
  bool collectSystemStateData() override {
    ++mScript.samples;
    std::this_thread::sleep_for(mScript.takes);
    return mScript.works;
  }
  std::unique_ptr<History> dumpSystemStateHistory() override {
    return mScript.history ? std::make_unique<Histories>(*mScript.history) : nullptr;
  }

 private:
  Script& mScript;
};

void add(SystemStateCollectorManager& manager, FakeCollector::Script& script) {
  manager.addCollector(std::make_unique<FakeCollector>(script));
}

FakeCollector::Script withHistory(uint8_t id, Histories history) {
  return {.id = id, .history = std::make_unique<Histories>(std::move(history))};
}

}  // namespace

TEST(SystemStateCollectorManager, NoneOfTheSourcesMeansNoManager) {
  const test::TempDir emptyRoot;
  const test::ScopedEnv environment("TORV_DEVICE_ROOT", emptyRoot.path());
  test::LogCapture log;
  PollStatistics statistics;
  ChargeFiles chargeFiles;
  EXPECT_EQ(SystemStateCollectorManager::makeDefaultManager(statistics, chargeFiles), nullptr);

  std::vector<std::string> adding;
  std::vector<std::string> failing;
  for (const char* const name :
       {"PsiMemCollector", "PsiCpuCollector", "PsiIoCollector", "SystemMemInfoCollector", "BatteryCollector",
        "CpuUsageCollector", "GpuCollector"}) {
    adding.push_back("systemstatecollector: adding " + std::string(name) + "\n");
    failing.push_back("Failed to create " + std::string(name) + "\n");
  }
  EXPECT_EQ(log.texts(ANDROID_LOG_INFO), adding);
  EXPECT_THAT(log.texts(ANDROID_LOG_ERROR),
              ElementsAre("Failed to open /proc/pressure/memory", failing[0],               //
                          "Failed to open /proc/pressure/cpu", failing[1],                  //
                          "Failed to open /proc/pressure/io", failing[2],                   //
                          "Failed to open /proc/meminfo", failing[3],                       //
                          "Failed to open /sys/class/power_supply/battery/charge_counter",  //
                          failing[4],                                                       //
                          "Failed to open /proc/stat", failing[5],                          //
                          "Failed to open /sys/class/kgsl/kgsl-3d0/gpubusy_accum", failing[6]));

  __android_log_print(ANDROID_LOG_INFO, nullptr, "no tag");
  for (const test::LogLine& line : log.lines()) EXPECT_EQ(line.tag, log.lines().back().tag) << line.text;
}

TEST(SystemStateCollectorManager, GoesOnWithTheSourcesThatThereAre) {
  const test::TempDir root;
  root.write("proc/meminfo", "MemTotal: 1 kB\n");
  root.write("proc/pressure/io", "");
  const test::ScopedEnv environment("TORV_DEVICE_ROOT", root.path());
  test::LogCapture log;
  PollStatistics statistics;
  ChargeFiles chargeFiles;
  const auto manager = SystemStateCollectorManager::makeDefaultManager(statistics, chargeFiles);
  ASSERT_NE(manager, nullptr);
  EXPECT_EQ(manager->collectorCount(), 2U);
  const auto histories = manager->dumpSystemStateHistory();
  EXPECT_EQ(histories->size(), 2U);
  EXPECT_EQ(histories->count("system_meminfo_history"), 1U);
  EXPECT_EQ(histories->count("psi_io_history"), 1U);
}

TEST(SystemStateCollectorManager, OfTwoCollectorsWithOneIdTheFirstStays) {
  test::LogCapture log;
  PollStatistics statistics;
  SystemStateCollectorManager manager(statistics);
  FakeCollector::Script first = withHistory(9, {{"first", "1"}});
  FakeCollector::Script second = withHistory(9, {{"second", "2"}});
  add(manager, first);
  add(manager, second);
  EXPECT_EQ(manager.collectorCount(), 1U);
  EXPECT_EQ(*manager.dumpSystemStateHistory(), (Histories{{"first", "1"}}));
  EXPECT_EQ(log.count("Adding new collector ID 9"), 2U);
}

TEST(SystemStateCollectorManager, EveryCollectorIsSampledInItsTurn) {
  PollStatistics statistics;
  SystemStateCollectorManager manager(statistics);
  std::map<uint32_t, FakeCollector::Script> byRate;
  for (const uint32_t rate : {0U, 1U, 2U, 3U}) {
    byRate[rate].id = static_cast<uint8_t>(rate);
    byRate[rate].rate = rate;
    add(manager, byRate[rate]);
  }
  std::vector<std::vector<int>> samples;
  for (int poll = 0; poll < 4; ++poll) {
    manager.pollCollectors();
    samples.push_back({byRate[0].samples, byRate[1].samples, byRate[2].samples, byRate[3].samples});
  }
  EXPECT_THAT(samples, ElementsAre(ElementsAre(0, 1, 1, 1), ElementsAre(0, 2, 1, 1), ElementsAre(0, 3, 2, 1),
                                   ElementsAre(0, 4, 2, 2)));
}

TEST(SystemStateCollectorManager, AFailedSampleIsReportedAndNoOtherSuffers) {
  test::LogCapture log;
  PollStatistics statistics;
  SystemStateCollectorManager manager(statistics);
  FakeCollector::Script failing;
  failing.works = false;
  FakeCollector::Script working;
  working.id = 2;
  add(manager, failing);
  add(manager, working);
  manager.pollCollectors();
  manager.pollCollectors();
  EXPECT_EQ(log.texts(ANDROID_LOG_ERROR),
            std::vector<std::string>(2, "Failed to read metrics for collector 1"));
  EXPECT_EQ(failing.samples, 2);
  EXPECT_EQ(working.samples, 2);
}

TEST(SystemStateCollectorManager, MergesTheHistoriesThatThereAre) {
  test::LogCapture log;
  PollStatistics statistics;
  SystemStateCollectorManager manager(statistics);
  FakeCollector::Script two = withHistory(1, {{"a", "1"}, {"b", "2"}});
  FakeCollector::Script empty = withHistory(2, {});
  FakeCollector::Script none;
  none.id = 3;
  FakeCollector::Script third = withHistory(4, {{"c", "3"}});
  for (FakeCollector::Script* const script : {&two, &empty, &none, &third}) add(manager, *script);
  EXPECT_EQ(*manager.dumpSystemStateHistory(), (Histories{{"a", "1"}, {"b", "2"}, {"c", "3"}}));
  EXPECT_THAT(log.texts(ANDROID_LOG_DEBUG).back(),
              MatchesRegex("System State data dump time, total: [0-9]+ ms"));
}

// Lets time pass, to see that a poll's own length is what is accounted for.
TEST(SystemStateCollectorManager, WarnsOfAPollThatTookTooLong) {
  test::LogCapture log;
  PollStatistics statistics;
  SystemStateCollectorManager manager(statistics);
  FakeCollector::Script slow;
  slow.takes = std::chrono::milliseconds(102);
  add(manager, slow);
  manager.pollCollectors();
  EXPECT_THAT(
      log.texts(ANDROID_LOG_WARN),
      ElementsAre(MatchesRegex("Time limit exceeded while polling collectors, max time [1-9][0-9]+, avg "
                               "exceeded time: [1-9][0-9]* ms")));
  EXPECT_GE(statistics.overrunMaxMs, 102);
  EXPECT_EQ(statistics.pollCount, 1U);
}

TEST(SystemStateCollectorManager, PollsFromItsThreadUntilItIsStopped) {
  test::LogCapture log;
  PollStatistics statistics;
  FakeCollector::Script script;
  {
    SystemStateCollectorManager manager(statistics);
    add(manager, script);
    manager.startCollectorThread();
    manager.startCollectorThread();
    manager.stopCollectorThread();
    manager.stopCollectorThread();
    EXPECT_EQ(script.samples, 0) << "the first poll comes a second after the start";
    manager.startCollectorThread();
    for (int i = 0; i < 2000 && script.samples == 0; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_GT(script.samples, 0);
  }
  EXPECT_EQ(log.count("Starting system state collector thread"), 3U);
  EXPECT_EQ(log.count("Stopping system state collector thread"), 3U);
}
