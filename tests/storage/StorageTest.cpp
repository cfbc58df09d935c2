// From the black box down to what each of its tables is made of.
#include <gmock/gmock.h>

#include "AgedValue.h"
#include "History.h"
#include "storage/BlackBox.h"

namespace Torv::OS::Diagnostics {
namespace {

using testing::ElementsAre, testing::HasSubstr, testing::Pair, testing::UnorderedElementsAre;

TEST(BlackBox, ForgetsADeadProcessWhenItsTimeHasRunOut) {
  int64_t now = 1'000'000;
  BlackBox box([&now] { return now; });
  box.addProcessState(1, "k", 2, "dead");
  box.addProcessState(1, "k", 1, "older");  // no reset for processes
  box.addProcessState(-2, "k", 1, "alive");
  box.addGlobalState("telemetry", "k", 1, "global");
  box.markProcessAsDead(1);
  box.markProcessAsDead(3);
  EXPECT_THAT(*box.getAllForPid(1), ElementsAre(Pair("k", "dead")));

  now += 59;
  box.markProcessAsDead(1);                // the first death stands
  box.addProcessState(1, "k", 3, "late");  // and a late value changes nothing about it
  EXPECT_THAT(box.getAllLivePids(), ElementsAre(-2));
  box.cleanupAllWithTtl(60);
  EXPECT_THAT(box.getAllProcessStates().at(1), ElementsAre(Pair("k", "late")));
  now += 1;
  box.cleanupAllWithTtl(60);
  EXPECT_EQ(box.getAllForPid(1), std::nullopt);

  now += 1'000'000;
  box.cleanupAllWithTtl(60);
  EXPECT_THAT(box.getAllProcessStates(), ElementsAre(Pair(-2, ElementsAre(Pair("k", "alive")))));
  EXPECT_EQ(box.getAllGlobalStates().size(), 1U);
  box.addProcessState(1, "new", 1, "afresh");
  EXPECT_THAT(*box.getAllForPid(1), ElementsAre(Pair("new", "afresh")));
  EXPECT_EQ(box.getAllLivePids().size(), 2U);
}

TEST(BlackBox, ResetsAGlobalWhoseClockStartedOver) {
  BlackBox box;
  box.addGlobalState("telemetry", "other", 200, "stays");
  const std::pair<int64_t, const char*> added[] = {
      {200, "first"}, {100, "restarted"}, {150, "newer than what is left, if older than what was"}};
  for (const auto& [timestamp, value] : added) {
    box.addGlobalState("telemetry", "id", timestamp, value);
    box.addGlobalState("telemetry", "id", timestamp, "equal");  // resets nothing
    EXPECT_THAT(box.getAllGlobalStates().at("telemetry").at("id"), HasSubstr(value));
  }
  EXPECT_THAT(box.getAllGlobalStates().at("telemetry").at("other"), HasSubstr(R"("v":"stays")"));
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

TEST(KeyTable, FindsEachOfManyNamesAndForgetsOneWithItsLastState) {
  KeyTable keys;
  State stays(keys);
  stays.add("shared", 1, "a");
  for (const std::string round : {"1/", "2/", "3/"}) {
    State passes(keys);
    passes.add("shared", 1, "shared");
    for (int i = 0; i < 5'000; i++) passes.add(round + std::to_string(i), 1, round + std::to_string(i));
    EXPECT_EQ(keys.size(), 5'001U);
    EXPECT_LE(*keys.find(round + "4999"), 5'001U);  // numbers are used again
    for (const auto& [key, value] : passes.getAll(false)) {
      ASSERT_EQ(key, value);
      ASSERT_EQ(passes.get(key, false), value);
    }
  }
  EXPECT_EQ(keys.size(), 1U);
  EXPECT_EQ(stays.get("shared", false), "a");
}

TEST(History, KeepsTheNewestThreeInOrderOfTimeAndAnEqualTimeBeforeTheEarlierOnes) {
  const std::pair<std::vector<std::pair<int64_t, std::string>>, std::string> cases[] = {
      {{{20, "b"}, {10, "a"}}, "ab"},
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

TEST(AgedValue, IsCompactJsonOfAgeAndValueAndNothingForTheFuture) {
  constexpr int64_t kMs = 1'000'000;
  EXPECT_EQ(agedValue({5 * kMs, "home"}, 12), R"({"dt_ms":7,"v":"home"})");
  EXPECT_EQ(agedValue({12 * kMs + 999'999, ""}, 12), R"({"dt_ms":0,"v":""})");
  EXPECT_EQ(agedValue({INT64_MIN, "a"}, 0), R"({"dt_ms":9223372036854,"v":"a"})");
  EXPECT_EQ(agedValue({0, "\"\n\xff"}, 0), R"({"dt_ms":0,"v":"\"\n\ufffd"})");
  EXPECT_EQ(agedValue({13 * kMs, "a"}, 12), std::nullopt);
  EXPECT_EQ(agedValue({INT64_MAX, "a"}, 0), std::nullopt);
}

TEST(BootTime, IsInWholeMillisecondsOfTheClockThatRunsOnInSleep) {
  const auto clock = [](clockid_t id, timespec* time) {
    *time = {12, 345'999'999};
    return id == CLOCK_BOOTTIME ? 0 : -1;
  };
  EXPECT_EQ(bootTimeMs(clock), 12'345);
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
