#include "systemstatecollector/SystemStateCollectorManager.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ChargeFiles.h"
#include "Source.h"
#include "support/LogCapture.h"

using namespace Torv::OS::Diagnostics;
using test::Strings;
using testing::ElementsAre;
using testing::MatchesRegex;

namespace {

using Histories = std::unordered_map<std::string, std::string>;

class FakeCollector : public SystemStateCollector {
 public:
  // Without histories its dump is null.
  FakeCollector(uint8_t id, uint32_t rate, std::function<bool()> sample, std::optional<Histories> histories)
      : SystemStateCollector(SystemStateCollectorConfig(60, rate)),
        mId(id),
        mSample(std::move(sample)),
        mHistories(std::move(histories)) {}

  uint8_t getId() const override { return mId; }
  std::string getDescription() const override { return "fake"; }
  bool collectSystemStateData() override { return mSample(); }
  std::unique_ptr<History> dumpSystemStateHistory() override {
    return mHistories ? std::make_unique<Histories>(*mHistories) : nullptr;
  }

 private:
  const uint8_t mId;
  const std::function<bool()> mSample;
  const std::optional<Histories> mHistories;
};

class SystemStateCollectorManagerTest : public testing::Test {
 protected:
  void add(uint8_t id, uint32_t rate, std::function<bool()> sample, std::optional<Histories> histories = {}) {
    mManager->addCollector(
        std::make_unique<FakeCollector>(id, rate, std::move(sample), std::move(histories)));
  }

  test::LogCapture mLog;
  PollStatistics mStatistics;
  std::unique_ptr<SystemStateCollectorManager> mManager =
      std::make_unique<SystemStateCollectorManager>(mStatistics);
};

}  // namespace

TEST_F(SystemStateCollectorManagerTest, NoneOfTheSourcesMeansNoManager) {
  const test::TempDir emptyRoot;
  const test::ScopedEnv environment("TORV_DEVICE_ROOT", emptyRoot.path());
  ChargeFiles chargeFiles;
  EXPECT_EQ(SystemStateCollectorManager::makeDefaultManager(mStatistics, chargeFiles), nullptr);

  const std::vector<std::pair<std::string, std::string>> sources = {
      {"PsiMemCollector", "/proc/pressure/memory"},
      {"PsiCpuCollector", "/proc/pressure/cpu"},
      {"PsiIoCollector", "/proc/pressure/io"},
      {"SystemMemInfoCollector", "/proc/meminfo"},
      {"BatteryCollector", "/sys/class/power_supply/battery/charge_counter"},
      {"CpuUsageCollector", "/proc/stat"},
      {"GpuCollector", "/sys/class/kgsl/kgsl-3d0/gpubusy_accum"}};
  Strings info;
  Strings errors;
  for (const auto& [name, path] : sources) {
    info.push_back("systemstatecollector: adding " + name + "\n");
    errors.push_back("Failed to open " + path);
    errors.push_back("Failed to create " + name + "\n");
  }
  EXPECT_EQ(mLog.texts(ANDROID_LOG_INFO), info);
  EXPECT_EQ(mLog.texts(ANDROID_LOG_ERROR), errors);
  __android_log_print(ANDROID_LOG_INFO, nullptr, "no tag");
  for (const test::LogLine& line : mLog.lines()) EXPECT_EQ(line.tag, mLog.lines().back().tag) << line.text;
}

TEST_F(SystemStateCollectorManagerTest, MergesHistoriesAndKeepsTheFirstOfEachId) {
  const auto works = [] { return true; };
  add(1, 1, works, Histories{{"a", "1"}, {"b", "2"}});
  add(1, 1, works, Histories{{"c", "3"}});
  add(2, 1, works, Histories{});
  add(3, 1, works);
  EXPECT_EQ(mManager->collectorCount(), 3U);
  EXPECT_EQ(*mManager->dumpSystemStateHistory(), (Histories{{"a", "1"}, {"b", "2"}}));
  EXPECT_THAT(mLog.texts(ANDROID_LOG_DEBUG),
              ElementsAre("Adding new collector ID 1", "Adding new collector ID 1",
                          "Adding new collector ID 2", "Adding new collector ID 3",
                          MatchesRegex("System State data dump time, total: [0-9]+ ms")));
}

TEST_F(SystemStateCollectorManagerTest, SamplesEachInItsTurnWhateverAnotherDoes) {
  std::vector<int> samples(4);
  for (const uint8_t rate : {0, 1, 2, 3}) {
    add(rate, rate, [&samples, rate] { return ++samples[rate] > 0 && rate != 3; });
  }
  std::vector<std::vector<int>> afterEach;
  for (int poll = 0; poll < 4; ++poll) {
    mManager->pollCollectors();
    afterEach.push_back(samples);
  }
  EXPECT_THAT(afterEach, ElementsAre(ElementsAre(0, 1, 1, 1), ElementsAre(0, 2, 1, 1),
                                     ElementsAre(0, 3, 2, 1), ElementsAre(0, 4, 2, 2)));
  EXPECT_EQ(mLog.texts(ANDROID_LOG_ERROR), Strings(2, "Failed to read metrics for collector 3"));
}

TEST_F(SystemStateCollectorManagerTest, WarnsOfAPollThatTookTooLong) {
  add(1, 1, [] {
    std::this_thread::sleep_for(std::chrono::milliseconds(102));
    return true;
  });
  mManager->pollCollectors();
  EXPECT_THAT(
      mLog.texts(ANDROID_LOG_WARN),
      ElementsAre(MatchesRegex("Time limit exceeded while polling collectors, max time [1-9][0-9]+, avg "
                               "exceeded time: [1-9][0-9]* ms")));
}

TEST_F(SystemStateCollectorManagerTest, PollsFromItsThreadUntilItIsStopped) {
  std::atomic<int> samples{0};
  add(1, 1, [&samples] { return ++samples > 0; });
  mManager->startCollectorThread();
  mManager->stopCollectorThread();
  EXPECT_EQ(samples, 0) << "the first poll comes a second after the start";
  mManager->startCollectorThread();
  for (int i = 0; i < 2000 && samples == 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_GT(samples, 0);
  mManager.reset();
  EXPECT_EQ(mLog.count("Starting system state collector thread"), 2U);
  EXPECT_EQ(mLog.count("Stopping system state collector thread"), 2U);
}
