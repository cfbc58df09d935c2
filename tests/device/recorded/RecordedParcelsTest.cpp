// What platform/binder puts into parcels, beside what the platform's own libbinder put there for the same
// values: tests/device/run --record recorded it inside the emulated machine.

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "recorded/Parcels.h"

TEST(RecordedParcelsTest, everyRequestAndReplyEqualsTheRealLibrarys) {
  std::ifstream recorded(RECORDED_PARCELS);
  std::string line;
  for (const auto& [name, hex] : packParcels()) {
    ASSERT_TRUE(std::getline(recorded, line)) << "not recorded: " << name;
    EXPECT_EQ((name + " ").append(hex), line);
  }
  EXPECT_FALSE(std::getline(recorded, line)) << "recorded, but packed no more: " << line;
}
