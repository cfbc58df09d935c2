#include "History.h"

#include <vector>

#include <gtest/gtest.h>

namespace Torv::OS::Diagnostics {
namespace {

struct Observation {
  int64_t timestamp;
  const char* value;
};

std::vector<std::string> valuesAfter(const std::vector<Observation>& added) {
  History history(0);
  for (const Observation& observation : added) history.add(observation.timestamp, observation.value);
  std::vector<std::string> values;
  for (size_t i = 0; i < history.size(); i++) values.push_back(history[i].value);
  return values;
}

using Values = std::vector<std::string>;

TEST(History, KeepsTheNewestThreeInOrderOfTime) {
  EXPECT_EQ(valuesAfter({}), Values());
  EXPECT_EQ(valuesAfter({{20, "b"}, {10, "a"}}), Values({"a", "b"}));
  EXPECT_EQ(valuesAfter({{10, "a"}, {20, "b"}, {30, "c"}, {40, "d"}}), Values({"b", "c", "d"}));
  EXPECT_EQ(valuesAfter({{40, "d"}, {10, "a"}, {30, "c"}, {20, "b"}}), Values({"b", "c", "d"}));
  EXPECT_EQ(valuesAfter({{10, "a"}, {20, "b"}, {40, "d"}, {30, "c"}, {35, "x"}}), Values({"c", "x", "d"}));
  EXPECT_EQ(valuesAfter({{INT64_MAX, "z"}, {0, "n"}, {INT64_MIN, "y"}}), Values({"y", "n", "z"}));
}

TEST(History, DropsAValueAtOnceThatIsNotNewerThanThreeHeld) {
  EXPECT_EQ(valuesAfter({{10, "a"}, {20, "b"}, {30, "c"}, {5, "d"}}), Values({"a", "b", "c"}));
  EXPECT_EQ(valuesAfter({{10, "a"}, {20, "b"}, {30, "c"}, {10, "d"}}), Values({"a", "b", "c"}));
}

TEST(History, PutsAnEqualTimeBeforeTheEarlierOnes) {
  EXPECT_EQ(valuesAfter({{10, "first"}, {10, "second"}, {10, "third"}}),
            Values({"third", "second", "first"}));
  EXPECT_EQ(valuesAfter({{10, "a"}, {20, "first"}, {20, "second"}, {20, "third"}}),
            Values({"third", "second", "first"}));
  EXPECT_EQ(valuesAfter({{10, "a"}, {20, "b"}, {30, "c"}, {30, "d"}, {30, "e"}}), Values({"e", "d", "c"}));
}

TEST(History, StartsAfreshWhenCleared) {
  History history(0);
  for (int64_t i = 0; i < 5; i++) history.add(i, std::string(4096, 'x'));
  history.clear();
  EXPECT_TRUE(history.empty());
  history.add(-1, "again");
  ASSERT_EQ(history.size(), 1U);
  EXPECT_EQ(history.newest().value, "again");
  EXPECT_EQ(history.newest().timestamp, -1);
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
