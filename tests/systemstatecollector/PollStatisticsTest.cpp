#include "systemstatecollector/PollStatistics.h"

#include <string>

#include <gtest/gtest.h>

using Torv::OS::Diagnostics::accountPoll;
using Torv::OS::Diagnostics::PollStatistics;

namespace {

// "max avg" of the warning that a poll of that length is due, or "none".
std::string warningOf(PollStatistics& statistics, int64_t elapsedNs) {
  const auto warning = accountPoll(statistics, elapsedNs);
  if (!warning) return "none";
  return std::to_string(warning->maxMs) + " " + std::to_string(warning->averageMs);
}

}  // namespace

TEST(PollStatistics, AnOverrunBeginsAtTheFirstNanosecondOf101Milliseconds) {
  PollStatistics statistics;
  EXPECT_EQ(warningOf(statistics, 0), "none");
  EXPECT_EQ(warningOf(statistics, 100'999'999), "none");
  EXPECT_EQ(statistics.overrunMaxMs, 0);
  EXPECT_EQ(warningOf(statistics, 101'000'000), "101 10");
}

TEST(PollStatistics, EveryOverrunWarnsWithATenthOfItsOwnLengthAndTheLongestEver) {
  PollStatistics statistics;
  EXPECT_EQ(warningOf(statistics, 150'999'999), "150 15");
  EXPECT_EQ(warningOf(statistics, 300'000'000), "300 30");
  EXPECT_EQ(warningOf(statistics, 99'000'000), "none");
  EXPECT_EQ(warningOf(statistics, 120'000'000), "300 12");
}

TEST(PollStatistics, ASeriesAlreadyBegunIsSummedUpToItsTenth) {
  PollStatistics statistics;
  statistics.overrunCount = 9;
  statistics.overrunTotalMs = 1000;
  EXPECT_EQ(warningOf(statistics, 200'000'000), "none");
  EXPECT_EQ(warningOf(statistics, 300'000'000), "300 150");
  EXPECT_EQ(statistics.overrunCount, 0U);
  EXPECT_EQ(statistics.overrunTotalMs, 0);
}
