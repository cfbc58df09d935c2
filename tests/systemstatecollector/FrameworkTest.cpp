// The parts of collectors: the ring, the report, the accounting of polls, the reading of a text.
#include <fcntl.h>
#include <unistd.h>

#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "PsiCollector.h"
#include "Source.h"
#include "base/Clock.h"
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

struct Sample {
  uint64_t timeMs;
  Json::Value value;
};

std::string report(uint64_t nowMs, const std::vector<Sample>& samples) {
  using Utils = SystemStateCollector::Utils;
  Json::Value report = Utils::makeJsonReport(nowMs);
  for (const auto& [timeMs, value] : samples) {
    Json::Value metrics;
    metrics["m"] = value;
    Utils::addTimeSeriesDataToJsonReport(report, nowMs - timeMs, metrics);
  }
  Utils::reverseTimeSeries(report);
  return Utils::makeHistory("name", report)->at("name");
}

bool reports(const Json::Value& value, const std::string& written) {
  return report(0, {{0, value}}).find("\"m\" : " + written + "\n") != std::string::npos;
}

// Returns "max avg" of the warning that a poll of this length causes, or "none".
std::string warning(PollStatistics& statistics, int64_t elapsedNs) {
  const auto due = accountPoll(statistics, elapsedNs);
  return due ? std::to_string(due->maxMs) + " " + std::to_string(due->averageMs) : "none";
}

}  // namespace

TEST(CircularBufferTest, holdsTheLastSamplesOldestFirst) {
  EXPECT_EQ(held(3, 0), (std::vector<int>{}));
  EXPECT_EQ(held(3, 3), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(held(3, 7), (std::vector<int>{5, 6, 7}));
  EXPECT_EQ(held(1, 2), (std::vector<int>{2}));
  EXPECT_EQ(held(0, 2), (std::vector<int>{}));
}

TEST(ReportTest, listsTheNewestSampleFirstWithItsUnsignedAge) {
  EXPECT_EQ(report(1234, {}),
            "{\n\t\"report_time_ms\" : 1234,\n\t\"time_series\" : [],\n\t\"version\" : \"1.0\"\n}");
  EXPECT_EQ(test::json(report(3000, {{1000, 1}, {3000, 2}, {3001, 3}})), test::json(R"({
      "version": "1.0", "report_time_ms": 3000, "time_series": [{"dt_ms": 18446744073709551615, "v": {"m": 3}},
      {"dt_ms": 0, "v": {"m": 2}}, {"dt_ms": 2000, "v": {"m": 1}}]})"));
}

TEST(ReportTest, cutsFloatingPointToTwoDecimalsAndNothingElse) {
  EXPECT_TRUE(reports(12.3456, "12.35"));
  EXPECT_TRUE(reports(25.0, "25.0"));
  EXPECT_TRUE(reports(0, "0"));
  EXPECT_TRUE(reports(std::numeric_limits<double>::quiet_NaN(), "null"));
  EXPECT_TRUE(reports(Json::UInt64{18446744073709551615U}, "18446744073709551615"));
}

TEST(ReportTest, timesAreWholeMilliseconds) {
  using Torv::Base::toReportMilliseconds;
  EXPECT_EQ(toReportMilliseconds({1, 999'999'999}), 1999U);
  // After some thirty years, the conversion through a double rounds up.
  EXPECT_EQ(toReportMilliseconds({1'000'000'000, 999'999'999}), 1'000'000'001'000U);
}

TEST(PollStatisticsTest, everyPollOver100WholeMillisecondsWarns) {
  PollStatistics statistics;
  EXPECT_EQ(warning(statistics, 100'999'999), "none");
  EXPECT_EQ(warning(statistics, 150'000'000), "150 15");
  EXPECT_EQ(warning(statistics, 300'999'999), "300 30");
  EXPECT_EQ(warning(statistics, 120'000'000), "300 12");
  EXPECT_EQ(warning(statistics, 101'000'000), "300 10");
}

class TextSourceTest : public testing::Test {
 protected:
  // The same file both ways: as init() opens it, and as a constructor takes it.
  std::vector<TextSource> bothWays(const std::string& name) const {
    std::vector<TextSource> sources;
    sources.push_back(std::move(*TextSource::open("/" + name)));
    sources.emplace_back(std::ifstream(mRoot.path(name)));
    return sources;
  }

  const test::TempDir mRoot;
  const test::ScopedEnv mEnvironment{"TORV_DEVICE_ROOT", mRoot.path()};
};

TEST_F(TextSourceTest, readsATextOfAnySizeWholeUpToTheLimit) {
  constexpr size_t kLimit = TextSource::kMaxTextBytes;
  mRoot.write("text", "");
  auto sources = bothWays("text");
  // Around the sizes of the buffers that a text passes through, longer and shorter in turn. The first one
  // fills the room that is made for a file's first text.
  for (const size_t size : {size_t{1'312}, size_t{40'000}, size_t{8'193}, size_t{8'192}, size_t{8'191},
                            kLimit, kLimit + 1, size_t{1}, size_t{0}, size_t{100'000}}) {
    std::string text(size, 'x');
    if (size > 0) text.back() = 'y';
    mRoot.write("text", text);
    if (size > kLimit) text.clear();
    for (TextSource& source : sources) {
      std::string found = "the text before";
      EXPECT_EQ(source.readInto(found), size <= kLimit) << size;
      EXPECT_TRUE(found == text) << size << " characters read as " << found.size();
    }
  }
}

// A descriptor that is open for writing only fails to be read, as one does whose driver is gone for a while.
TEST_F(TextSourceTest, recoversFromAFailedRead) {
  const std::string path = mRoot.write("file", "readable");
  for (const bool streamed : {false, true}) {
    const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(descriptor);  // the source gets this number
    TextSource source = streamed ? TextSource(std::ifstream(path)) : std::move(*TextSource::open("/file"));
    const auto replaceBy = [descriptor, &path](int flags) {
      const int other = open(path.c_str(), flags | O_CLOEXEC);
      ASSERT_EQ(dup3(other, descriptor, O_CLOEXEC), descriptor);
      close(other);
    };
    std::string text = "the text before";
    replaceBy(O_WRONLY);
    EXPECT_FALSE(source.readInto(text));
    EXPECT_EQ(text, "");
    EXPECT_FALSE(source.isBad());
    replaceBy(O_RDONLY);
    EXPECT_TRUE(source.readInto(text));
    EXPECT_EQ(text, "readable");
  }
}

TEST(TextCollectorTest, aBadStreamIsReportedEachTimeAndStoresNothing) {
  std::ifstream stream = test::Source("text", "text").open();
  stream.setstate(std::ios::badbit);
  PsiIoCollector collector(SystemStateCollectorConfig(60, 1), std::move(stream));
  const test::LogCapture log;
  EXPECT_FALSE(collector.collectSystemStateData());
  EXPECT_FALSE(collector.collectSystemStateData());
  EXPECT_EQ(log.texts(ANDROID_LOG_ERROR), Strings(2, "PSI io Stream is bad"));
  EXPECT_EQ(test::metrics(collector), Strings{});
}

TEST(TextCollectorTest, anOutageIsLoggedOnceAndItsSamplesAreEmpty) {
  test::Source source("proc/pressure/io");
  const auto collector = PsiIoCollector::init(SystemStateCollectorConfig(60, 1));
  const std::string tooLong(TextSource::kMaxTextBytes + 1, 'x');
  const test::LogCapture log;
  for (const std::string& text : {tooLong, tooLong, std::string("\n"), tooLong}) {
    source.set(text);
    EXPECT_TRUE(collector->collectSystemStateData());
  }
  EXPECT_EQ(
      log.texts(ANDROID_LOG_ERROR),
      Strings(2, "Cannot read /proc/pressure/io, or it is larger than 131072 bytes; its samples are empty"));
  EXPECT_EQ(test::metrics(*collector), Strings(4, "{}"));
}
