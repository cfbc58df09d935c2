// A long recording, replayed and exported: what the views show agrees with counts that a script makes from
// the recording's lines.
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <json/value.h>

#include "GeneratedRecording.h"
#include "Screen.h"
#include "base/Json.h"
#include "fixture/Daemon.h"
#include "fixture/Process.h"
#include "support/TempDir.h"
#include "timeline/Sources.h"

namespace timeline {
namespace {

Json::Value countsOf(const std::string& kind, const std::string& path) {
  const fixture::Outcome outcome =
      fixture::run({"/usr/bin/python3", COUNT_SCRIPT, kind, path}, {getuid(), {}});
  EXPECT_EQ(outcome.exitCode(), 0) << outcome.output;
  const auto counts = Torv::Base::parseJson(outcome.output);
  EXPECT_TRUE(counts.ok()) << outcome.output;
  return counts.ok() ? *counts : Json::Value();
}

// A short recording of the real service, which ends and comes back, while applications publish and one dies.
void writeRealRecording(const std::string& path) {
  fixture::Daemon daemon;
  daemon.start();
  fixture::Process recorder(
      {fixture::staged("diagctl"), "record", "--every", "100ms", "--timeout", "1", "-o", path},
      daemon.client(getuid()));
  const auto recorded = [&](const std::string& text) {
    return fixture::eventually([&] { return test::readFile(path).find(text) != std::string::npos; });
  };
  ASSERT_TRUE(recorded("processes"));
  {
    const fixture::Process sleeper({"/bin/sleep", "100"}, daemon.client());
    for (const char* const value : {"one", "two", "three"}) {
      ASSERT_TRUE(fixture::publish(sleeper.pid(), "key <b>", value));
      ASSERT_TRUE(recorded(value));
    }
  }
  ASSERT_TRUE(recorded("\"dead\""));
  daemon.stop(SIGTERM);
  ASSERT_TRUE(recorded("\"gap\""));
  daemon.start();
  ASSERT_TRUE(fixture::publish(getpid(), "key", "after the gap"));
  ASSERT_TRUE(recorded("after the gap"));
  // The recorder asks for the histories once more when it ends.
  ASSERT_TRUE(fixture::eventually([&] {
    const auto context = fixture::run({fixture::staged("diagctl"), "context"}, daemon.client());
    return context.output.find("MemFree_KB") != std::string::npos;
  }));
  recorder.signal(SIGINT);
  ASSERT_EQ(recorder.wait(), 0);
}

class RecordedViewsTest : public testing::TestWithParam<const char*> {
 protected:
  static void SetUpTestSuite() {
    sDir = new test::TempDir;
    recordings::writeGeneratedRecording(sDir->path("generated"));
    writeRealRecording(sDir->path("real"));
  }
  static void TearDownTestSuite() { delete sDir; }

  const std::string path = sDir->path(GetParam());
  const Json::Value counts = countsOf("recording", path);

  static test::TempDir* sDir;
};

test::TempDir* RecordedViewsTest::sDir = nullptr;

INSTANTIATE_TEST_SUITE_P(Recordings, RecordedViewsTest, testing::Values("generated", "real"));

TEST_P(RecordedViewsTest, theReplayedTimelineHoldsWhatTheLinesSay) {
  const auto timeline = fromFile(path);
  ASSERT_TRUE(timeline.ok()) << timeline.error();
  int64_t removed = 0;
  for (const KeyChange& change : timeline->changes) removed += !change.value;
  EXPECT_EQ(removed, counts["removed"].asInt64());
  EXPECT_EQ(static_cast<int64_t>(timeline->changes.size()) - removed, counts["changes"].asInt64());
  EXPECT_GE(counts["changes"].asInt64(), 4);

  ASSERT_EQ(timeline->deaths.size(), counts["deaths"].size());
  EXPECT_GE(timeline->deaths.size(), 1);
  for (Json::ArrayIndex i = 0; i < counts["deaths"].size(); ++i) {
    EXPECT_EQ(timeline->deaths[i].seenMs, counts["deaths"][i][0].asInt64());
    EXPECT_EQ(timeline->deaths[i].pid, counts["deaths"][i][1].asInt());
  }
  ASSERT_EQ(timeline->gaps.size(), 1);
  ASSERT_EQ(counts["gaps"].size(), 1);
  EXPECT_EQ(timeline->gaps[0].fromMs, counts["gaps"][0][0].asInt64());
  EXPECT_EQ(timeline->gaps[0].toMs, counts["gaps"][0][1].asInt64());

  Json::Value last(Json::objectValue);
  for (const ProcessSnapshot& process : processesAt(*timeline, timeline->endMs)) {
    for (const auto& [key, state] : process.keys) last[std::to_string(process.pid)][key] = state.value;
  }
  EXPECT_EQ(last, counts["last"]);

  size_t series = 0;
  for (const Series& one : timeline->series) {
    const Json::Value& expected = counts["values"][one.source + '/' + one.metric];
    int64_t values = 0;
    double sum = 0;
    for (const Point& point : one.points) {
      values += point.value.has_value();
      sum += point.value.value_or(0);
    }
    EXPECT_EQ(values, expected[0].asInt64()) << one.metric;
    EXPECT_NEAR(sum, expected[1].asDouble(), 0.01) << one.metric;
    series += values > 0;
  }
  EXPECT_EQ(series, counts["values"].size());
}

TEST_P(RecordedViewsTest, theExportedTraceHoldsWhatTheLinesSay) {
  const std::string trace = sDir->path("trace.pftrace");
  const fixture::Outcome outcome =
      fixture::run({fixture::staged("diagctl"), "export", "--from", path, "-o", trace}, {getuid(), {}});
  ASSERT_EQ(outcome.exitCode(), 0) << outcome.output;
  const Json::Value traced = countsOf("trace", trace);
  EXPECT_EQ(traced["slices"], counts["changes"]);
  EXPECT_EQ(traced["instants"].asUInt(), counts["deaths"].size());
  EXPECT_EQ(traced["values"], counts["values"]);
  EXPECT_EQ(traced["disordered"].asInt(), 0);
  EXPECT_EQ(traced["unclosed"].asInt(), 0);
  EXPECT_EQ(traced["units"]["system_meminfo_history/MemFree_KB"][0].asInt(), 3);
  EXPECT_EQ(traced["units"]["system_meminfo_history/MemFree_KB"][1].asInt(), 1024);
}

TEST_P(RecordedViewsTest, theLiveViewHoldsWhatTheLinesSay) {
  const tools::Screen screen(200, 60, {fixture::staged("diagctl"), "top", "--from", path});
  EXPECT_TRUE(screen.shows(" of " + std::to_string(counts["last"].size()) + " processes")) << screen.text();
}

// The page about a process that lives ends where the recording ends.
TEST_P(RecordedViewsTest, theReportHoldsWhatTheLinesSay) {
  const std::string pid = counts["last"].getMemberNames().back();
  const std::string page = sDir->path("report.html");
  const fixture::Outcome outcome = fixture::run(
      {fixture::staged("diagctl"), "report", "--pid", pid, "--from", path, "--last", "10m", "-o", page},
      {getuid(), {}});
  ASSERT_EQ(outcome.exitCode(), 0) << outcome.output;
  const std::string html = test::readFile(page);
  EXPECT_EQ(fixture::countOf(html, "<th colspan=\"3\">"), counts["last"].size() - 1);
  EXPECT_EQ(fixture::countOf(html, "<td>Nothing was seen for"), counts["gaps"].size());
  size_t died = 0;
  for (const Json::Value& death : counts["deaths"]) {
    died += fixture::countOf(html, "<td>Process " + death[1].asString() + " died.");
  }
  EXPECT_EQ(died, counts["deaths"].size());
}

}  // namespace
}  // namespace timeline
