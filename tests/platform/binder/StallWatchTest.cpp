#include "StallWatch.h"

#include <vector>

#include <gtest/gtest.h>

namespace {

using platform::binder::StallWatch;
using std::chrono::seconds;

class StallWatchTest : public testing::Test {
 protected:
  StallWatch::Ticket add(int id, StallWatch::Clock::time_point at, size_t bytes) {
    return watch.add(at, bytes, [this, id] { dropped.push_back(id); });
  }

  const StallWatch::Clock::time_point start{seconds(1000)};
  static constexpr size_t kMaxBytes = 1000;
  StallWatch watch{seconds(5), kMaxBytes};
  std::vector<int> dropped;
};

TEST_F(StallWatchTest, DropsWhoHasStalledForTooLongAndSaysWhenToAskAgain) {
  add(1, start, 10);
  const auto second = add(2, start + seconds(1), 10);
  add(3, start + seconds(2), 10);
  EXPECT_EQ(watch.expire(start + seconds(4)), start + seconds(5));
  EXPECT_TRUE(dropped.empty());
  watch.restart(second, start + seconds(5), 10);
  EXPECT_EQ(watch.expire(start + seconds(6)), start + seconds(7));
  EXPECT_EQ(dropped, std::vector<int>{1});
}

TEST_F(StallWatchTest, NeedsNoTimerOnceNobodyStalls) {
  const auto ticket = add(1, start, 10);
  watch.remove(ticket);
  EXPECT_EQ(watch.expire(start + seconds(10)), std::nullopt);
  EXPECT_TRUE(dropped.empty());
}

TEST_F(StallWatchTest, DropsTheLongestStalledOnesWhenTogetherTheyHoldTooMuch) {
  const size_t half = kMaxBytes / 2;
  const auto first = add(1, start, half);
  const auto second = add(2, start, half);
  EXPECT_TRUE(dropped.empty());
  watch.restart(first, start + seconds(1), half);
  const auto third = add(3, start + seconds(1), 1);
  EXPECT_EQ(dropped, std::vector<int>{2});
  watch.remove(second);
  watch.resize(third, half);
  EXPECT_EQ(dropped, std::vector<int>{2});
  watch.resize(third, half + 1);
  EXPECT_EQ(dropped, (std::vector<int>{2, 1}));
}

}  // namespace
