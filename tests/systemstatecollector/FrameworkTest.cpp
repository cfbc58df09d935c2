// The parts of collectors: the ring, the report, the accounting of polls, the reading of a text.
#include <fcntl.h>
#include <unistd.h>

#include <iterator>
#include <limits>

#include "PsiCollector.h"
#include "Source.h"
#include "support/LogCapture.h"
#include "systemstatecollector/CircularBuffer.h"
#include "systemstatecollector/PollStatistics.h"

using namespace Torv::OS::Diagnostics;
using test::Strings;

namespace {

// Returns the samples of a ring to which 1, 2, ... `samples` were added.
std::vector<int> held(uint64_t capacity, int samples) {
  CircularBuffer<int> buffer(capacity);
  for (int i = 1; i <= samples; ++i) buffer.reserve() = i;
  std::vector<int> out;
  const uint64_t count = buffer.readAll(std::back_inserter(out));
  EXPECT_EQ(count, buffer.size());
  return out;
}

TEST(CircularBufferTest, holdsTheLastSamplesOldestFirst) {
  EXPECT_EQ(held(3, 0), (std::vector<int>{}));
  EXPECT_EQ(held(3, 3), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(held(3, 7), (std::vector<int>{5, 6, 7}));
  EXPECT_EQ(held(1, 2), (std::vector<int>{2}));
  EXPECT_EQ(held(0, 2), (std::vector<int>{}));
}

// Returns the report of the time 3000 about samples with these times and values, oldest first.
std::string report(const std::vector<std::pair<uint64_t, Json::Value>>& samples) {
  using Utils = SystemStateCollector::Utils;
  Json::Value report = Utils::makeJsonReport(3000);
  for (const auto& [timeMs, value] : samples) {
    Utils::addTimeSeriesDataToJsonReport(report, 3000 - timeMs, value);
  }
  Utils::reverseTimeSeries(report);
  return Utils::makeHistory("name", report)->at("name");
}

TEST(ReportTest, listsTheNewestSampleFirstWithItsUnsignedAge) {
  EXPECT_EQ(report({}),
            "{\n\t\"report_time_ms\" : 3000,\n\t\"time_series\" : [],\n\t\"version\" : \"1.0\"\n}");
  EXPECT_EQ(test::json(report({{1000, 1}, {3000, 2}, {3001, 3}})), test::json(R"({
      "version": "1.0", "report_time_ms": 3000, "time_series": [
      {"dt_ms": 18446744073709551615, "v": 3}, {"dt_ms": 0, "v": 2}, {"dt_ms": 2000, "v": 1}]})"));
}

TEST(ReportTest, cutsFloatingPointToTwoDecimalsAndNothingElse) {
  const std::pair<Json::Value, const char*> cases[] = {
      {12.3456, "12.35"},
      {25.0, "25.0"},
      {0, "0"},
      {std::numeric_limits<double>::quiet_NaN(), "null"},
      {Json::UInt64{18446744073709551615U}, "18446744073709551615"}};
  for (const auto& [value, written] : cases) {
    EXPECT_THAT(report({{0, value}}), testing::HasSubstr("\"v\" : " + std::string(written) + "\n"));
  }
}

TEST(PollStatisticsTest, everyPollOver100WholeMillisecondsWarns) {
  PollStatistics statistics;
  EXPECT_FALSE(accountPoll(statistics, 100'999'999).has_value());
  constexpr int64_t kPolls[][3] = {
      {150'000'000, 150, 15}, {300'999'999, 300, 30}, {120'000'000, 300, 12}, {101'000'000, 300, 10}};
  for (const auto& [elapsedNs, maxMs, averageMs] : kPolls) {
    const auto warning = accountPoll(statistics, elapsedNs);
    ASSERT_TRUE(warning.has_value()) << elapsedNs;
    EXPECT_EQ(warning->maxMs, maxMs) << elapsedNs;
    EXPECT_EQ(warning->averageMs, averageMs) << elapsedNs;
  }
}

// A descriptor that is open for writing only fails to be read, as one does whose driver is gone for a while.
// Both ways to a source: the file that init() opens, and the stream that a constructor takes.
TEST(TextSourceTest, recoversFromAFailedRead) {
  const test::HostDir host;
  const std::string path = host.write("text", "readable");
  for (const bool streamed : {false, true}) {
    const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(descriptor);  // the source gets this number
    TextSource text = streamed ? TextSource(std::ifstream(path)) : std::move(*TextSource::open("/text"));
    for (const int flags : {O_WRONLY, O_RDONLY}) {
      const int other = open(path.c_str(), flags | O_CLOEXEC);
      ASSERT_EQ(dup3(other, descriptor, O_CLOEXEC), descriptor);
      close(other);
      std::string found = "the text before";
      EXPECT_EQ(text.readInto(found), flags == O_RDONLY);
      EXPECT_EQ(found, flags == O_RDONLY ? "readable" : "");
      EXPECT_FALSE(text.isBad());
    }
  }
}

TEST(TextCollectorTest, aBadStreamIsReportedEachTimeAndStoresNothing) {
  const test::HostDir host;
  std::ifstream stream(host.write("text", "text"));
  stream.setstate(std::ios::badbit);
  PsiIoCollector collector(SystemStateCollectorConfig(60, 1), std::move(stream));
  const test::LogCapture log;
  EXPECT_FALSE(collector.collectSystemStateData());
  EXPECT_FALSE(collector.collectSystemStateData());
  EXPECT_EQ(log.texts(ANDROID_LOG_ERROR), Strings(2, "PSI io Stream is bad"));
  EXPECT_EQ(test::metrics(collector), Strings{});
}

// Sizes around those of the buffers that a text passes through, longer and shorter in turn. The first one
// fills the room that is made for a file's first text.
TEST(TextCollectorTest, aTextOfAnySizeIsReadWholeUpToTheLimit) {
  constexpr size_t kLimit = TextSource::kMaxTextBytes;
  Strings texts, metrics;
  for (const size_t size : {size_t{1'312}, size_t{40'000}, size_t{8'193}, size_t{8'192}, size_t{8'191},
                            kLimit, kLimit + 1, size_t{100}, size_t{100'000}}) {
    const std::string line = "some avg10=0.00 avg60=0.00 avg300=0.00 total=" + std::to_string(size);
    texts.push_back(std::string(size - line.size(), '\n') + line);  // the parser skips empty lines
    metrics.push_back("some_avg10=0.0 some_avg300=0.0 some_avg60=0.0 some_total=" + std::to_string(size));
    if (size > kLimit) metrics.back().clear();
  }
  EXPECT_EQ(test::metricsOf<PsiIoCollector>("proc/pressure/io", texts), metrics);
}

TEST(TextCollectorTest, anOutageIsLoggedOnceAndItsSamplesAreEmpty) {
  const std::string tooLong(TextSource::kMaxTextBytes + 1, 'x');
  const test::LogCapture log;
  EXPECT_EQ(test::metricsOf<PsiIoCollector>("proc/pressure/io", {tooLong, tooLong, "\n", tooLong}),
            Strings(4, ""));
  EXPECT_EQ(
      log.texts(ANDROID_LOG_ERROR),
      Strings(4, "Cannot read /proc/pressure/io, or it is larger than 131072 bytes; its samples are empty"))
      << "twice each way";
}

}  // namespace
