// The table of one process's values, and what it is made of.
#include "storage/State.h"

#include <cerrno>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>

#include "AgedValue.h"
#include "History.h"
#include "support/LogCapture.h"

namespace Torv::OS::Diagnostics {
namespace {

using testing::HasSubstr;
using testing::Pair;
using testing::UnorderedElementsAre;

TEST(History, KeepsTheNewestThreeInOrderOfTimeAndAnEqualTimeBeforeTheEarlierOnes) {
  const std::pair<std::vector<std::pair<int64_t, std::string>>, std::string> cases[] = {
      {{{20, "b"}, {10, "a"}}, "ab"},
      {{{10, "a"}, {20, "b"}, {30, "c"}, {40, "d"}}, "bcd"},
      {{{10, "a"}, {20, "b"}, {40, "d"}, {30, "c"}, {35, "x"}}, "cxd"},
      {{{10, "a"}, {20, "b"}, {30, "c"}, {5, "d"}}, "abc"},
      {{{INT64_MAX, "z"}, {0, "n"}, {INT64_MIN, "y"}}, "ynz"},
      {{{10, "1"}, {10, "2"}, {10, "3"}}, "321"},
      {{{10, "a"}, {20, "b"}, {30, "c"}, {10, "d"}}, "abc"},
      {{{10, "a"}, {20, "b"}, {30, "c"}, {30, "d"}, {30, "e"}}, "edc"},
  };
  for (const auto& [added, expected] : cases) {
    History history(0);
    for (const auto& [timestamp, value] : added) history.add(timestamp, std::string(value));
    std::string kept;  // oldest first
    for (size_t i = 0; i < history.size(); i++) kept += history[i].value;
    EXPECT_EQ(kept, expected);
  }
}

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

TEST(AgedValue, IsCompactJsonOfAgeAndValueAndNothingForTheFuture) {
  constexpr int64_t kMs = 1'000'000;
  EXPECT_EQ(agedValue({5 * kMs, "home"}, 12), R"({"dt_ms":7,"v":"home"})");
  EXPECT_EQ(agedValue({12 * kMs + 999'999, ""}, 12), R"({"dt_ms":0,"v":""})");
  EXPECT_EQ(agedValue({INT64_MIN, "a"}, 0), R"({"dt_ms":9223372036854,"v":"a"})");
  EXPECT_EQ(agedValue({13 * kMs, "a"}, 12), std::nullopt);
  EXPECT_EQ(agedValue({INT64_MAX, "a"}, 0), std::nullopt);
}

// The writer is kept, so nothing of one value may be left in it for the next.
TEST(AgedValue, WritesEveryStringAsTheLibraryDoes) {
  Json::StreamWriterBuilder settings;
  settings["indentation"] = "";
  std::string everyByte;
  for (int byte = 0; byte < 256; byte++) everyByte += static_cast<char>(byte);
  for (const std::string& value : {everyByte, std::string("cut \xe2\x82"), std::string("\xed\xa0\x80"),
                                   std::string("\xf0\x9f\x98\x80"), std::string(4096, '"')}) {
    Json::Value expected;
    expected["v"] = value;
    expected["dt_ms"] = Json::UInt64(3);
    EXPECT_EQ(agedValue({0, value}, 3), Json::writeString(settings, expected));
  }
}

TEST(BootTime, IsMillisecondsOrZeroAndLoggedWhereItCannotBeRead) {
  const test::LogCapture log;
  const auto good = [](clockid_t clock, timespec* time) {
    *time = {12, 345'999'999};
    return clock == CLOCK_BOOTTIME ? 0 : -1;
  };
  EXPECT_EQ(bootTimeMs(good), 12'345);
  const auto failing = [](clockid_t, timespec*) {
    errno = EINVAL;
    return -1;
  };
  EXPECT_EQ(bootTimeMs(failing), 0);
  EXPECT_TRUE(log.has(ANDROID_LOG_ERROR, "libdiagnostics-storage", "error getting time: Invalid argument"));
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
