#include "systemstatecollector/CircularBuffer.h"

#include <iterator>
#include <numeric>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using Torv::OS::Diagnostics::CircularBuffer;

namespace {

// What a buffer holds after it was given 1, 2, ... `samples`.
std::vector<int> heldAfter(uint64_t capacity, int samples) {
  CircularBuffer<int> buffer(capacity);
  for (int i = 1; i <= samples; ++i) buffer.reserve() = i;
  std::vector<int> out;
  const uint64_t count = buffer.readAll(std::back_inserter(out));
  EXPECT_EQ(count, out.size());
  EXPECT_EQ(count, buffer.size());
  return out;
}

}  // namespace

TEST(CircularBuffer, GivesBackWhatItHoldsOldestFirst) {
  EXPECT_EQ(heldAfter(3, 0), (std::vector<int>{}));
  EXPECT_EQ(heldAfter(3, 2), (std::vector<int>{1, 2}));
  EXPECT_EQ(heldAfter(3, 3), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(heldAfter(3, 4), (std::vector<int>{2, 3, 4}));
  EXPECT_EQ(heldAfter(3, 7), (std::vector<int>{5, 6, 7}));
  EXPECT_EQ(heldAfter(1, 2), (std::vector<int>{2}));
  EXPECT_EQ(heldAfter(0, 2), (std::vector<int>{}));

  std::vector<int> lastSixty(60);
  std::iota(lastSixty.begin(), lastSixty.end(), 2);
  EXPECT_EQ(heldAfter(60, 61), lastSixty);
}

TEST(CircularBuffer, HandsOutSlotsWithWhatTheyHeld) {
  CircularBuffer<std::string> buffer(2);
  EXPECT_EQ(buffer.reserve(), "");
  buffer.reserve() = "second";
  buffer.reserve() = "third";
  EXPECT_EQ(buffer.reserve(), "second");
}
