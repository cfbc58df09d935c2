#include "StallWatch.h"

#include <vector>

#include <gtest/gtest.h>

namespace {

using platform::binder::StallWatch;
using std::chrono::seconds;

// Restarted ones count as the latest; the byte counts are tested at the limit.
TEST(StallWatch, DropsTheLongestStalledAfterItsTimeOrWhenTogetherTheyHoldTooMuch) {
  const StallWatch::Clock::time_point start{seconds(1000)};
  StallWatch watch(seconds(5), /*maxBytes=*/1000);
  std::vector<int> dropped;
  const auto add = [&](int id, seconds at, size_t bytes) {
    return watch.add(start + at, bytes, [&dropped, id] { dropped.push_back(id); });
  };
  const auto first = add(1, seconds(0), 500);
  const auto second = add(2, seconds(1), 500);
  EXPECT_EQ(watch.expire(start + seconds(4)), start + seconds(5));
  EXPECT_TRUE(dropped.empty());
  watch.restart(first, start + seconds(2), 500);
  const auto third = add(3, seconds(3), 1);
  EXPECT_EQ(dropped, std::vector<int>{2});
  watch.remove(second);
  watch.resize(third, 500);
  EXPECT_EQ(watch.expire(start + seconds(6)), start + seconds(7));
  EXPECT_EQ(dropped, std::vector<int>{2});
  watch.resize(third, 501);
  EXPECT_EQ(dropped, (std::vector<int>{2, 1}));
  watch.remove(first);
  EXPECT_EQ(watch.expire(start + seconds(7)), start + seconds(8));
  watch.expire(start + seconds(8));
  EXPECT_EQ(dropped, (std::vector<int>{2, 1, 3}));
  watch.remove(third);
  EXPECT_EQ(watch.expire(start + seconds(9)), std::nullopt);
}

}  // namespace
