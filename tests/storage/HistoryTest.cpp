#include "History.h"

#include <vector>

#include <gtest/gtest.h>

namespace Torv::OS::Diagnostics {
namespace {

using Values = std::vector<std::string>;

// What is held, oldest first, after adding these.
Values valuesAfter(const std::vector<std::pair<int64_t, std::string>>& added) {
  History history(0);
  for (const auto& [timestamp, value] : added) history.add(timestamp, std::string(value));
  Values values;
  for (size_t i = 0; i < history.size(); i++) values.push_back(history[i].value);
  return values;
}

TEST(History, KeepsTheNewestThreeInOrderOfTime) {
  EXPECT_EQ(valuesAfter({{20, "b"}, {10, "a"}}), Values({"a", "b"}));
  EXPECT_EQ(valuesAfter({{10, "a"}, {20, "b"}, {30, "c"}, {40, "d"}}), Values({"b", "c", "d"}));
  EXPECT_EQ(valuesAfter({{10, "a"}, {20, "b"}, {40, "d"}, {30, "c"}, {35, "x"}}), Values({"c", "x", "d"}));
  EXPECT_EQ(valuesAfter({{10, "a"}, {20, "b"}, {30, "c"}, {5, "d"}}), Values({"a", "b", "c"}));
  EXPECT_EQ(valuesAfter({{INT64_MAX, "z"}, {0, "n"}, {INT64_MIN, "y"}}), Values({"y", "n", "z"}));
}

TEST(History, PutsAnEqualTimeBeforeTheEarlierOnes) {
  EXPECT_EQ(valuesAfter({{10, "1st"}, {10, "2nd"}, {10, "3rd"}}), Values({"3rd", "2nd", "1st"}));
  EXPECT_EQ(valuesAfter({{10, "a"}, {20, "b"}, {30, "c"}, {10, "d"}}), Values({"a", "b", "c"}));
  EXPECT_EQ(valuesAfter({{10, "a"}, {20, "b"}, {30, "c"}, {30, "d"}, {30, "e"}}), Values({"e", "d", "c"}));
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
