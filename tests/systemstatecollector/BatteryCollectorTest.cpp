#include "BatteryCollector.h"

#include <limits>
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

  // Returns the reported charge of a sample that was taken while the files held these texts.
  std::string percent(BatteryCollector& collector, std::string_view counter, std::string_view full) const {
    set(counter, full);
    EXPECT_TRUE(collector.collectSystemStateData());
    const std::string metrics = test::metrics(collector).at(0);
    return metrics.substr(sizeof("{\"BatteryCharge_%\":") - 1);
  }

  const test::TempDir mRoot;
  const test::ScopedEnv mEnvironment{"TORV_DEVICE_ROOT", mRoot.path()};
  ChargeFiles mFiles;
};

}  // namespace

TEST_F(BatteryCollectorTest, reportsTheShareOfTheFullChargeAsItIsNow) {
  set("", "");
  const auto collector = makeCollector();
  EXPECT_EQ(percent(*collector, "3000\n", "4000\n"), "75.0}");
  EXPECT_EQ(percent(*collector, "1000", "4000"), "25.0}") << "a number needs no newline";
  EXPECT_EQ(percent(*collector, "5000\n", "4000\n"), "125.0}");
  EXPECT_EQ(percent(*collector, "abc", "2\n"), "0.0}") << "text that is no number is no failed reading";
  EXPECT_EQ(percent(*collector, "1000000000000\n", "1\n"), "99999999590400.0}")
      << "the ratio is a 32-bit float";
}

TEST_F(BatteryCollectorTest, aFailedReadingRepeatsWhatTheSlotHeld) {
  set("", "");
  const auto collector = makeCollector(2);
  EXPECT_EQ(percent(*collector, "1\n", "4\n"), "25.0}");
  EXPECT_EQ(percent(*collector, "2\n", "4\n"), "50.0}");
  EXPECT_EQ(percent(*collector, "3\n", "0\n"), "25.0}");
  EXPECT_EQ(percent(*collector, "", "4\n"), "50.0}");
  EXPECT_EQ(percent(*collector, "3\n", " \n"), "25.0}");
  EXPECT_EQ(percent(*collector, "3\n", "4\n"), "75.0}");
}

TEST_F(BatteryCollectorTest, needsBothFilesAndTriesEachOnce) {
  test::LogCapture log;
  mRoot.write(kCounter, "1\n");
  EXPECT_EQ(makeCollector(), nullptr);
  mRoot.write(kFull, "2\n");
  EXPECT_EQ(makeCollector(), nullptr);
  EXPECT_EQ(log.texts(ANDROID_LOG_ERROR),
            test::Strings(2, "Failed to open /sys/class/power_supply/battery/charge_full"));
}

TEST_F(BatteryCollectorTest, readsANumberAsScanfDoes) {
  constexpr auto parse = &BatteryCollector::parseNumber;
  EXPECT_EQ(parse(" \t-42 7"), -42);
  EXPECT_EQ(parse("+5"), 5);
  EXPECT_EQ(parse("+-5"), 0);
  EXPECT_EQ(parse("-"), 0);
  EXPECT_EQ(parse("-99999999999999999999"), std::numeric_limits<int64_t>::min());
  EXPECT_EQ(parse("99999999999999999999"), std::numeric_limits<int64_t>::max());
  EXPECT_EQ(parse(" \n"), std::nullopt);
}

TEST_F(BatteryCollectorTest, aCollectorThatGoesTakesOnlyTheFullChargeWithIt) {
  set("1\n", "4\n");
  auto first = makeCollector();
  const auto second = makeCollector(1);
  EXPECT_EQ(percent(*second, "1\n", "4\n"), "25.0}");
  first.reset();
  EXPECT_EQ(percent(*second, "2\n", "4\n"), "25.0}");
  const auto third = makeCollector();
  ASSERT_NE(third, nullptr);
  EXPECT_EQ(percent(*third, "2\n", "4\n"), "50.0}");
}
