#include "storage/State.h"

#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <time.h>

namespace Torv::OS::Diagnostics {
namespace {

using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Pair;
using testing::UnorderedElementsAre;

int64_t bootTimeNs() {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return now.tv_sec * INT64_C(1'000'000'000) + now.tv_nsec;
}

TEST(State, AnswersWithTheNewestValueOfAKnownKey) {
  KeyTable keys;
  State state(keys);
  EXPECT_EQ(state.get("screen", false), std::nullopt);
  EXPECT_THAT(state.getAll(false), IsEmpty());
  state.add("screen", 20, "home");
  state.add("screen", 10, "boot");
  state.add("", 1, "");
  EXPECT_EQ(state.get("screen", false), "home");
  EXPECT_EQ(state.newestTimestamp("screen"), 20);
  EXPECT_THAT(state.getAll(false), UnorderedElementsAre(Pair("screen", "home"), Pair("", "")));

  State other(keys);  // a name that only another state holds
  EXPECT_EQ(other.get("screen", false), std::nullopt);
}

TEST(State, LeavesOutAKeyWhoseHistoryWasCleared) {
  KeyTable keys;
  State state(keys);
  state.add("a", 10, "1");
  state.add("b", 10, "2");
  state.clear("a");
  state.clear("unknown");
  EXPECT_EQ(state.get("a", true), std::nullopt);
  EXPECT_EQ(state.newestTimestamp("a"), std::nullopt);
  EXPECT_THAT(state.getAll(true), UnorderedElementsAre(Pair("b", testing::_)));
}

TEST(State, CarriesTheAgeOnTheBootClockAndNothingOfTheFuture) {
  KeyTable keys;
  State state(keys);
  const int64_t now = bootTimeNs();
  state.add("past", now - INT64_C(5'000'000'000), "x");
  state.add("future", now + INT64_C(3'600'000'000'000), "y");
  EXPECT_THAT(*state.get("past", true), MatchesRegex(R"(\{"dt_ms":[0-9]+,"v":"x"\})"));
  EXPECT_GE(std::stoll(state.get("past", true)->substr(9)), 5'000);
  EXPECT_EQ(state.get("future", true), std::nullopt);
  EXPECT_EQ(state.get("future", false), "y");
  EXPECT_EQ(state.getAll(true).at("future"), "");
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
