#include "Shares.h"

#include <future>

#include <gtest/gtest.h>

namespace platform::binder {
namespace {

using Part = Shares::Part;

constexpr uid_t kGreedy = 1;
constexpr uid_t kOther = 2;
constexpr uid_t kThird = 3;

// Takes one on a thread of its own.
std::future<Part> taker(Shares& shares, uid_t uid) {
  return std::async(std::launch::async, [&shares, uid] { return shares.take(uid, 1); });
}

bool waits(const std::future<Part>& taker) {
  return taker.wait_for(std::chrono::milliseconds(50)) == std::future_status::timeout;
}

TEST(SharesTest, whatIsFreedGoesToTheFirstWaiterWhoseShareHasRoom) {
  Shares shares({.total = 3, .byUid = 2});
  Part first = shares.take(kGreedy, 1);
  const Part second = shares.take(kGreedy, 1);
  auto greedy = taker(shares, kGreedy);
  EXPECT_TRUE(waits(greedy)) << "its uid has used up its share";
  const Part others = shares.take(kOther, 1);
  EXPECT_TRUE(others != nullptr);
  auto third = taker(shares, kThird);
  EXPECT_TRUE(waits(third)) << "nothing is left";
  shares.setShare({.total = 3, .byUid = 1});
  first.reset();
  EXPECT_TRUE(third.get());
  EXPECT_TRUE(waits(greedy));
  shares.setShare({.total = 4, .byUid = 2});
  EXPECT_TRUE(greedy.get());
}

TEST(SharesTest, nobodyWaitsOrGetsAnythingAfterItIsClosed) {
  Shares shares({0, 0});
  auto waiter = taker(shares, kOther);
  EXPECT_TRUE(waits(waiter));
  shares.close();
  EXPECT_FALSE(waiter.get());
  shares.setShare({.total = 1, .byUid = 1});
  EXPECT_FALSE(shares.take(kOther, 1));
}

}  // namespace
}  // namespace platform::binder
