#include "BatteryCollector.h"

#include <string>

#include <gtest/gtest.h>

#include "Source.h"
#include "support/LogCapture.h"

using namespace Torv::OS::Diagnostics;

namespace {

constexpr char kCounter[] = "sys/class/power_supply/battery/charge_counter";
constexpr char kFull[] = "sys/class/power_supply/battery/charge_full";

class BatteryCollectorTest : public testing::Test {
 protected:
  void set(std::string_view counter, std::string_view full) const {
    mRoot.write(kCounter, counter);
    mRoot.write(kFull, full);
  }

  std::unique_ptr<BatteryCollector> makeCollector(uint32_t maxSamples = 60) {
    return BatteryCollector::init(SystemStateCollectorConfig(maxSamples, 2), mFiles);
  }

  // The charge that a sample taken now reports.
  static double sampledPercent(BatteryCollector& collector) {
    EXPECT_TRUE(collector.collectSystemStateData());
    return test::valuesOf(collector, "battery_state_history").front()["BatteryCharge_%"].asDouble();
  }

  const test::TempDir mRoot;
  const test::ScopedEnv mEnvironment{"TORV_DEVICE_ROOT", mRoot.path()};
  ChargeFiles mFiles;
};

}  // namespace

TEST_F(BatteryCollectorTest, ReportsTheShareOfTheFullCharge) {
  set("3000\n", "4000\n");
  const auto collector = makeCollector();
  ASSERT_NE(collector, nullptr);
  EXPECT_EQ(collector->getId(), 5);
  EXPECT_EQ(collector->getDescription(), "Provides battery stats");
  EXPECT_EQ(sampledPercent(*collector), 75.0);
  set("5000\n", "4000\n");
  EXPECT_EQ(sampledPercent(*collector), 125.0);
  // One byte long, so that it fits even an unbuffered stream's memory.
  set("1\n", "2\n");
  EXPECT_EQ(sampledPercent(*collector), 50.0);
  set("2\n", "2\n");
  EXPECT_EQ(sampledPercent(*collector), 100.0);
  set("-1\n", "4\n");
  EXPECT_EQ(sampledPercent(*collector), -25.0);
}

TEST_F(BatteryCollectorTest, TheRatioIsA32BitFloat) {
  set("1000000000000\n", "1\n");
  const auto collector = makeCollector();
  EXPECT_EQ(sampledPercent(*collector), 99999999590400.0);
}

TEST_F(BatteryCollectorTest, AFailedReadingRepeatsWhatTheSlotHeld) {
  set("1\n", "4\n");
  const auto collector = makeCollector(2);
  EXPECT_EQ(sampledPercent(*collector), 25.0);
  set("2\n", "4\n");
  EXPECT_EQ(sampledPercent(*collector), 50.0);
  set("3\n", "0\n");
  EXPECT_EQ(sampledPercent(*collector), 25.0);
  set("3", "4\n");
  EXPECT_EQ(sampledPercent(*collector), 50.0);
  set("", "4\n");
  EXPECT_EQ(sampledPercent(*collector), 25.0);
  set("3\n", "4");
  EXPECT_EQ(sampledPercent(*collector), 50.0);
  set("3\n", "4\n");
  EXPECT_EQ(sampledPercent(*collector), 75.0);
}

TEST_F(BatteryCollectorTest, TextThatIsNoNumberIsNoFailedReading) {
  set("4\n", "4\n");
  const auto collector = makeCollector(1);
  EXPECT_EQ(sampledPercent(*collector), 100.0);
  set("abc", "4\n");
  EXPECT_EQ(sampledPercent(*collector), 0.0);
}

TEST_F(BatteryCollectorTest, AFileThatCannotBeReadIsAFailedReading) {
  mRoot.write(std::string(kCounter) + "/a_directory", "");
  mRoot.write(kFull, "4\n");
  const auto collector = makeCollector();
  ASSERT_NE(collector, nullptr);
  EXPECT_FALSE(mFiles.readRatio());
}

TEST_F(BatteryCollectorTest, NeedsBothFilesAndTriesEachOnce) {
  test::LogCapture log;
  EXPECT_EQ(makeCollector(), nullptr);
  set("1\n", "2\n");
  EXPECT_EQ(makeCollector(), nullptr);
  EXPECT_EQ(log.texts(ANDROID_LOG_ERROR),
            std::vector<std::string>(2, "Failed to open /sys/class/power_supply/battery/charge_counter"));

  log.clear();
  ChargeFiles others;
  mRoot.write("other/" + std::string(kCounter), "1\n");
  const test::ScopedEnv otherRoot("TORV_DEVICE_ROOT", mRoot.path("other"));
  EXPECT_EQ(BatteryCollector::init(SystemStateCollectorConfig(60, 2), others), nullptr);
  EXPECT_EQ(log.texts(ANDROID_LOG_ERROR),
            (std::vector<std::string>{"Failed to open /sys/class/power_supply/battery/charge_full"}));
}

TEST_F(BatteryCollectorTest, ACollectorThatGoesTakesOnlyTheFullChargeWithIt) {
  set("1\n", "4\n");
  auto first = makeCollector();
  const auto second = makeCollector(1);
  EXPECT_EQ(sampledPercent(*second), 25.0);
  first.reset();
  set("2\n", "4\n");
  EXPECT_EQ(sampledPercent(*second), 25.0);
  const auto third = makeCollector();
  ASSERT_NE(third, nullptr);
  EXPECT_EQ(sampledPercent(*third), 50.0);
}
