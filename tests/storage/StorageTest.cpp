// From the black box down to what each of its tables is made of.
#include <random>

#include <gmock/gmock.h>

#include "AgedValue.h"
#include "PackedHistories.h"
#include "base/Clock.h"
#include "storage/BlackBox.h"

namespace Torv::OS::Diagnostics {
namespace {

using testing::ElementsAre, testing::HasSubstr, testing::IsEmpty, testing::Pair,
    testing::UnorderedElementsAre;

TEST(BlackBoxTest, forgetsADeadProcessWhenItsTimeHasRunOut) {
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

  box.markProcessAsDead(-2);
  now += 1'000'000;
  box.cleanupAllWithTtl(INT64_MAX);  // keeps everything
  EXPECT_THAT(box.getAllProcessStates(), ElementsAre(Pair(-2, ElementsAre(Pair("k", "alive")))));
  EXPECT_EQ(box.getAllGlobalStates().size(), 1U);
  box.addProcessState(1, "new", 1, "afresh");
  EXPECT_THAT(*box.getAllForPid(1), ElementsAre(Pair("new", "afresh")));
  EXPECT_THAT(box.getAllLivePids(), ElementsAre(1));
}

TEST(BlackBoxTest, resetsAGlobalWhoseClockStartedOver) {
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

TEST(StateTest, answersWithTheNewestValueOfAKeyThatHoldsOne) {
  State state;
  EXPECT_FALSE(state.isDead);
  EXPECT_THAT(state.getAll(false), IsEmpty());
  state.add("screen", 20, "home");
  state.add("screen", 10, "starting");
  state.add("", 1, "");
  state.add("cleared", 1, "x");
  state.dropIfNewer("cleared", 0);
  state.dropIfNewer("screen", 20);
  state.add("future", INT64_MAX, "y");
  for (const char* key : {"unknown", "cleared"}) EXPECT_EQ(state.get(key, false), std::nullopt);
  EXPECT_EQ(state.get("future", true), std::nullopt);
  EXPECT_EQ(state.replyBytes(), replyBytesOfState(6, 4) + replyBytesOfState(0, 0) + replyBytesOfState(6, 1));
  EXPECT_THAT(state.getAll(false),
              UnorderedElementsAre(Pair("screen", "home"), Pair("", ""), Pair("future", "y")));
  EXPECT_THAT(state.getAll(true), UnorderedElementsAre(Pair("screen", HasSubstr(R"("v":"home")")),
                                                       Pair("", HasSubstr(R"("v":"")")), Pair("future", "")));
}

std::string valuesOf(const PackedHistories& histories, const std::string& key) {  // oldest first
  const PackedHistories::History history = histories.find(key);
  std::string values;
  for (size_t i = 0; i < history.size; i++) values += history.values[i].text;
  return values;
}

TEST(PackedHistoriesTest, keepTheNewestThreeInOrderOfTimeAndAnEqualTimeBeforeTheEarlierOnes) {
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
    PackedHistories histories;
    for (const auto& [timestamp, value] : added) histories.add("key", timestamp, value);
    EXPECT_EQ(valuesOf(histories, "key"), expected);
  }
}

// What histories.replyBytes() must be.
size_t freshReplyBytes(const PackedHistories& histories) {
  size_t sum = 0;
  histories.forEach([&](const PackedHistories::History& history) { sum += history.replyBytes(); });
  return sum;
}

// Against plain maps: values that grow and shrink move records, cut histories are packed anew.
TEST(PackedHistoriesTest, holdWhatPlainMapsHoldHoweverTextsGrowAndShrink) {
  std::mt19937 random(1);
  PackedHistories histories;
  std::map<std::string, std::map<int64_t, std::string>> plain;
  for (int64_t now = 1; now <= 60'000; now++) {
    const std::string key = std::string(random() % 3, 'k') + std::to_string(random() % 400);
    const std::string value(random() % 8 == 0 ? random() % 300 : random() % 12,
                            static_cast<char>('a' + now % 26));
    if (random() % 50 == 0) {
      histories.clear(key);
      plain[key].clear();
    }
    histories.add(key, now, value);
    plain[key][now] = value;
    if (plain[key].size() > 3) plain[key].erase(plain[key].begin());
  }
  EXPECT_EQ(histories.keyCount(), plain.size());
  EXPECT_EQ(histories.replyBytes(), freshReplyBytes(histories));
  std::map<int64_t, std::string> keyByTime;
  for (const auto& [key, values] : plain) {
    keyByTime[values.rbegin()->first] = key;
    std::string expected;
    for (const auto& [timestamp, value] : values) expected += value;
    EXPECT_EQ(valuesOf(histories, key), expected);
  }

  const size_t half = histories.bytes() / 2;
  size_t dropped = histories.keepNewest(half);
  EXPECT_LE(histories.bytes(), half);
  EXPECT_EQ(histories.keyCount(), plain.size() - dropped);
  EXPECT_EQ(histories.replyBytes(), freshReplyBytes(histories));
  for (const auto& [timestamp, key] : keyByTime) {
    EXPECT_EQ(histories.find(key).empty(), dropped > 0) << "the oldest go";
    if (dropped > 0) dropped--;
  }
}

TEST(AgedValueTest, isCompactJsonOfAgeAndValueAndNothingForTheFuture) {
  constexpr int64_t kMs = 1'000'000;
  EXPECT_EQ(agedValue(5 * kMs, "home", 12), R"({"dt_ms":7,"v":"home"})");
  EXPECT_EQ(agedValue(12 * kMs + 999'999, "", 12), R"({"dt_ms":0,"v":""})");
  EXPECT_EQ(agedValue(INT64_MIN, "a", 0), R"({"dt_ms":9223372036854,"v":"a"})");
  EXPECT_EQ(agedValue(0, "\"\n\xff", 0), R"({"dt_ms":0,"v":"\"\n\ufffd"})");
  EXPECT_EQ(agedValue(13 * kMs, "a", 12), std::nullopt);
  const auto clock = [](clockid_t id, timespec* time) {
    *time = {12, 345'999'999};
    return id == CLOCK_BOOTTIME ? 0 : -1;
  };
  EXPECT_EQ(bootTimeMs(clock), 12'345) << "the clock runs on in sleep";
  // After some thirty years, the conversion through a double rounds up.
  EXPECT_EQ(Base::toReportMilliseconds({1'000'000'000, 999'999'999}), 1'000'000'001'000U);
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
