#include "systemstatecollector/SystemStateCollectorManager.h"

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Source.h"
#include "support/LogCapture.h"

using namespace Torv::OS::Diagnostics;
using test::Strings;
using testing::ElementsAre;
using testing::MatchesRegex;

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

class SystemStateCollectorManagerTest : public testing::Test {
 protected:
  void add(uint8_t id, uint32_t rate, std::function<bool()> sample) {
    mManager.addCollector(std::make_unique<FakeCollector>(id, rate, std::move(sample)));
  }

  test::LogCapture mLog;
  PollStatistics mStatistics;
  SystemStateCollectorManager mManager{mStatistics};
};

}  // namespace

TEST_F(SystemStateCollectorManagerTest, SamplesEachInItsTurnWhateverAnotherDoes) {
  std::vector<int> samples(4);
  for (const uint8_t rate : {0, 1, 2, 3}) {
    add(rate, rate, [&samples, rate] { return ++samples[rate] > 0 && rate != 3; });
  }
  add(1, 1, [] { return false; });
  EXPECT_EQ(mManager.collectorCount(), 4U) << "the first of an id stays";
  std::vector<std::vector<int>> afterEach;
  for (int poll = 0; poll < 4; ++poll) {
    mManager.pollCollectors();
    afterEach.push_back(samples);
  }
  EXPECT_TRUE(mManager.dumpSystemStateHistory()->empty()) << "none of them has any";
  EXPECT_THAT(afterEach, ElementsAre(ElementsAre(0, 1, 1, 1), ElementsAre(0, 2, 1, 1),
                                     ElementsAre(0, 3, 2, 1), ElementsAre(0, 4, 2, 2)));
  EXPECT_EQ(mLog.texts(ANDROID_LOG_ERROR), Strings(2, "Failed to read metrics for collector 3"));
}

TEST_F(SystemStateCollectorManagerTest, WarnsOfAPollThatTookTooLong) {
  add(1, 1, [] {
    std::this_thread::sleep_for(std::chrono::milliseconds(102));
    return true;
  });
  mManager.pollCollectors();
  EXPECT_THAT(
      mLog.texts(ANDROID_LOG_WARN),
      ElementsAre(MatchesRegex("Time limit exceeded while polling collectors, max time [1-9][0-9]+, avg "
                               "exceeded time: [1-9][0-9]* ms")));
}
