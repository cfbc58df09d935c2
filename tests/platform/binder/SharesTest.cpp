#include "Shares.h"

#include <atomic>
#include <future>
#include <thread>

#include <gtest/gtest.h>

namespace {

using platform::binder::Shares;
using Part = Shares::Part;

constexpr uid_t kGreedy = 1;
constexpr uid_t kOther = 2;

// Takes one on a thread of its own.
class Taker {
 public:
  Taker(Shares& shares, uid_t uid)
      : mPart(std::async(std::launch::async, [&shares, uid] { return shares.take(uid, 1); })) {}

  bool waits() { return mPart.wait_for(std::chrono::milliseconds(50)) == std::future_status::timeout; }
  Part get() { return mPart.get(); }

 private:
  std::future<Part> mPart;
};

TEST(SharesTest, aUidMayUseMoreThanItsShareButLeavesWhatIsKeptFree) {
  Shares shares({.total = 8, .byUid = 4, .keptFree = 2});
  std::vector<Part> greedy;
  for (int i = 0; i < 6; ++i) greedy.push_back(shares.take(kGreedy, 1));
  Taker seventh(shares, kGreedy);
  EXPECT_TRUE(seventh.waits());
  const Part first = shares.take(kOther, 1);
  const Part second = shares.take(kOther, 1);
  greedy.clear();
  EXPECT_TRUE(seventh.get());
}

TEST(SharesTest, whatIsFreedGoesToTheOneWhoIsBelowTheShareThoughHeCameLater) {
  Shares shares({.total = 2, .byUid = 1, .keptFree = 0});
  Part first = shares.take(kGreedy, 1);
  const Part second = shares.take(kGreedy, 1);
  Taker greedy(shares, kGreedy);
  EXPECT_TRUE(greedy.waits());
  Taker other(shares, kOther);
  EXPECT_TRUE(other.waits());
  first.giveBack();
  Part others = other.get();
  EXPECT_TRUE(others);
  EXPECT_TRUE(greedy.waits());
  others.giveBack();
  EXPECT_TRUE(greedy.get());
}

TEST(SharesTest, nobodyWaitsOrGetsAnythingAfterItIsClosed) {
  Shares shares({});
  Taker waiter(shares, kOther);
  EXPECT_TRUE(waiter.waits());
  shares.close();
  EXPECT_FALSE(waiter.get());
  shares.setRule({.total = 1, .byUid = 1});
  EXPECT_FALSE(shares.take(kOther, 1));
}

}  // namespace
