#include "StallWatch.h"

#include <vector>

#include <gtest/gtest.h>

namespace {

using platform::binder::StallWatch;
using std::chrono::seconds;

// The cap on what they hold together is tested with real connections.
TEST(StallWatch, DropsTheLongestStalledAndARestartedOneCountsAsTheLatest) {
  const StallWatch::Clock::time_point start{seconds(1000)};
  StallWatch watch(seconds(5), /*maxBytes=*/1000);
  std::vector<int> dropped;
  const auto add = [&](int id, seconds at) {
    return watch.add(start + at, /*bytes=*/1, [&dropped, id] { dropped.push_back(id); });
  };
  const auto first = add(1, seconds(0));
  const auto second = add(2, seconds(1));
  watch.restart(first, start + seconds(2), 1);
  EXPECT_EQ(watch.expire(start + seconds(5)), start + seconds(6));
  EXPECT_TRUE(dropped.empty());
  watch.expire(start + seconds(6));
  EXPECT_EQ(dropped, std::vector<int>{2});
  watch.remove(second);
  watch.expire(start + seconds(7));
  EXPECT_EQ(dropped, (std::vector<int>{2, 1}));
}

}  // namespace
