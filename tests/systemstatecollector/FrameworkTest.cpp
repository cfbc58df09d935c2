// What collectors are made of: the ring, the report, the accounting of polls, the reading of a text.
#include <fcntl.h>
#include <unistd.h>

#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "HistoryReport.h"
#include "PsiCollector.h"
#include "Source.h"
#include "support/LogCapture.h"
#include "systemstatecollector/CircularBuffer.h"
#include "systemstatecollector/PollStatistics.h"

using namespace Torv::OS::Diagnostics;
using test::Strings;

namespace {

// What a ring holds after it was given 1, 2, ... `samples`.
std::vector<int> held(uint64_t capacity, int samples) {
  CircularBuffer<int> buffer(capacity);
  for (int i = 1; i <= samples; ++i) buffer.reserve() = i;
  std::vector<int> out;
  const uint64_t count = buffer.readAll(std::back_inserter(out));
  EXPECT_EQ(count, buffer.size());
  return out;
}

struct Sample {
  uint64_t timeMs;
  Json::Value value;
};

std::string report(uint64_t nowMs, const std::vector<Sample>& samples) {
  const auto write = [](const Sample& sample, Json::Value& out) { out["m"] = sample.value; };
  return makeHistory("name", nowMs, samples, Evaluate::NewestFirst, write)->at("name");
}

bool reports(const Json::Value& value, const std::string& written) {
  return report(0, {{0, value}}).find("\"m\" : " + written + "\n") != std::string::npos;
}

// "max avg" of the warning that a poll of that length is due.
std::string warning(PollStatistics& statistics, int64_t elapsedNs) {
  const auto due = accountPoll(statistics, elapsedNs);
  return due ? std::to_string(due->maxMs) + " " + std::to_string(due->averageMs) : "none";
}

}  // namespace

TEST(CircularBuffer, HoldsTheLastSamplesOldestFirst) {
  EXPECT_EQ(held(3, 0), (std::vector<int>{}));
  EXPECT_EQ(held(3, 3), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(held(3, 7), (std::vector<int>{5, 6, 7}));
  EXPECT_EQ(held(1, 2), (std::vector<int>{2}));
  EXPECT_EQ(held(0, 2), (std::vector<int>{}));
}

TEST(Report, ListsTheNewestSampleFirstWithItsUnsignedAge) {
  EXPECT_EQ(report(1234, {}),
            "{\n\t\"report_time_ms\" : 1234,\n\t\"time_series\" : [],\n\t\"version\" : \"1.0\"\n}");
  EXPECT_EQ(test::json(report(3000, {{1000, 1}, {3000, 2}, {3001, 3}})), test::json(R"({
      "version": "1.0", "report_time_ms": 3000, "time_series": [{"dt_ms": 18446744073709551615, "v": {"m": 3}},
      {"dt_ms": 0, "v": {"m": 2}}, {"dt_ms": 2000, "v": {"m": 1}}]})"));
}

TEST(Report, CutsFloatingPointToTwoDecimalsAndNothingElse) {
  EXPECT_TRUE(reports(12.3456, "12.35"));
  EXPECT_TRUE(reports(25.0, "25.0"));
  EXPECT_TRUE(reports(0, "0"));
  EXPECT_TRUE(reports(std::numeric_limits<double>::quiet_NaN(), "null"));
  EXPECT_TRUE(reports(Json::UInt64{18446744073709551615U}, "18446744073709551615"));
}

TEST(Report, TimesAreWholeMilliseconds) {
  using Utils = SystemStateCollector::Utils;
  EXPECT_EQ(Utils::toMilliseconds({1, 999'999'999}), 1999U);
  // After some thirty years the double between nanoseconds and milliseconds rounds up.
  EXPECT_EQ(Utils::toMilliseconds({1'000'000'000, 999'999'999}), 1'000'000'001'000U);
}

TEST(PollStatistics, EveryPollOver100WholeMillisecondsWarns) {
  PollStatistics statistics;
  EXPECT_EQ(warning(statistics, 100'999'999), "none");
  EXPECT_EQ(warning(statistics, 150'000'000), "150 15");
  EXPECT_EQ(warning(statistics, 300'999'999), "300 30");
  EXPECT_EQ(warning(statistics, 120'000'000), "300 12");
  EXPECT_EQ(warning(statistics, 101'000'000), "300 10");
}

TEST(TextSource, ReadsATextOfAnySizeWhole) {
  const test::TempDir root;
  const test::ScopedEnv environment("TORV_DEVICE_ROOT", root.path());
  root.write("text", "");
  auto opened = TextSource::open("/text");
  ASSERT_TRUE(opened);
  std::ifstream stream(root.path("text"));
  stream.setstate(std::ios::eofbit | std::ios::failbit);
  TextSource adopted(std::move(stream));
  // Around the sizes of the buffers that it comes through, longer and shorter in turn; the first fills the
  // room that is made for a file's first text.
  for (const size_t size : {1'312, 40'000, 8'193, 8'192, 8'191, 1, 0, 100'000}) {
    std::string text(size, 'x');
    if (size > 0) text.back() = 'y';
    root.write("text", text);
    for (TextSource* const source : {&*opened, &adopted}) {
      std::string found = "the text before";
      source->readInto(found);
      EXPECT_TRUE(found == text) << size << " characters read as " << found.size();
    }
  }
}

// A directory opens like a file and fails to read, as a file does whose driver has gone for a while.
TEST(TextSource, RecoversFromAFailedRead) {
  const test::TempDir directory;
  const test::ScopedEnv environment("TORV_DEVICE_ROOT", directory.path());
  for (const bool adopted : {false, true}) {
    const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(descriptor);  // so that it is the source's
    TextSource source =
        adopted ? TextSource(std::ifstream(directory.path())) : std::move(*TextSource::open("/"));
    std::string text = "the text before";
    source.readInto(text);
    EXPECT_EQ(text, "");
    EXPECT_FALSE(source.isBad());
    const int readable = open(directory.write("file", "readable").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(dup3(readable, descriptor, O_CLOEXEC), descriptor);
    close(readable);
    source.readInto(text);
    EXPECT_EQ(text, "readable");
  }
}

TEST(TextCollector, ABadStreamIsReportedEachTimeAndStoresNothing) {
  std::ifstream stream = test::Source("text").open();
  stream.setstate(std::ios::badbit);
  PsiIoCollector collector(SystemStateCollectorConfig(60, 1), std::move(stream));
  const test::LogCapture log;
  EXPECT_FALSE(collector.collectSystemStateData());
  EXPECT_FALSE(collector.collectSystemStateData());
  EXPECT_EQ(log.texts(ANDROID_LOG_ERROR), Strings(2, "PSI io Stream is bad"));
  EXPECT_EQ(test::metrics(collector), Strings{});
}
