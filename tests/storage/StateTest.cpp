#include "storage/State.h"

#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Torv::OS::Diagnostics {
namespace {

using testing::HasSubstr;
using testing::Pair;
using testing::UnorderedElementsAre;

TEST(State, AnswersWithTheNewestValueOfAKeyThatHoldsOne) {
  KeyTable keys;
  State state(keys);
  State other(keys);
  other.add("elsewhere", 10, "x");
  state.add("screen", 20, "home");
  state.add("screen", 10, "boot");
  state.add("", 1, "");
  state.add("cleared", 1, "x");
  state.clear("cleared");
  state.add("future", INT64_MAX, "y");
  EXPECT_EQ(state.get("screen", false), "home");
  EXPECT_EQ(state.newestTimestamp("screen"), 20);
  for (const char* key : {"unknown", "elsewhere", "cleared"}) {
    EXPECT_EQ(state.get(key, false), std::nullopt);
    EXPECT_EQ(state.newestTimestamp(key), std::nullopt);
  }
  EXPECT_EQ(state.get("future", true), std::nullopt);
  EXPECT_THAT(state.getAll(false),
              UnorderedElementsAre(Pair("screen", "home"), Pair("", ""), Pair("future", "y")));
  EXPECT_THAT(state.getAll(true), UnorderedElementsAre(Pair("screen", HasSubstr(R"("v":"home")")),
                                                       Pair("", HasSubstr(R"("v":"")")), Pair("future", "")));
}

TEST(State, FindsEachOfManyKeysAgain) {
  KeyTable keys;
  State state(keys);
  State other(keys);
  std::mt19937 random(1);
  for (int i = 0; i < 20'000; i++) {
    const std::string key = "key" + std::to_string(random() % 5'000);
    (random() % 2 == 0 ? state : other).add(key, i, key);
  }
  const auto all = state.getAll(false);
  EXPECT_GT(all.size(), 4'000U);
  for (const auto& [key, value] : all) {
    ASSERT_EQ(key, value);
    ASSERT_EQ(state.get(key, false), value);
  }
}

TEST(KeyTable, ForgetsANameWithItsLastState) {
  KeyTable keys;
  State stays(keys);
  stays.add("shared", 1, "a");
  for (int round = 0; round < 3; round++) {
    State passes(keys);
    passes.add("shared", 1, "b");
    for (int i = 0; i < 100; i++) passes.add(std::to_string(round) + "/" + std::to_string(i), 1, "c");
    EXPECT_EQ(keys.size(), 101U);
    EXPECT_LE(*keys.find(std::to_string(round) + "/99"), 101U);  // numbers are used again
  }
  EXPECT_EQ(keys.size(), 1U);
  EXPECT_EQ(stays.get("shared", false), "a");
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
