#include "systemstatecollector/SystemStateCollectorManager.h"

#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Source.h"
#include "support/LogCapture.h"

using namespace Torv::OS::Diagnostics;
using std::chrono::milliseconds, std::chrono::steady_clock;
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

}  // namespace

TEST_F(SystemStateCollectorManagerTest, samplesEachInItsTurnWhateverAnotherDoes) {
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
  EXPECT_THAT(
      mLog.texts(ANDROID_LOG_WARN),
      ElementsAre(MatchesRegex("Time limit exceeded while polling collectors, max time [1-9][0-9]+, avg "
                               "exceeded time: [1-9][0-9]* ms")));
}
