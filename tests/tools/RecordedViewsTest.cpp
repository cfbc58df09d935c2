// A long recording and a real one, replayed and exported: what the views show agrees with counts that a
// script makes from the recording's lines.
#include <signal.h>

#include <gtest/gtest.h>

#include "ReadTrace.h"
#include "Screen.h"
#include "base/Json.h"
#include "timeline/Sources.h"

namespace timeline {
namespace {

using trace::TrackEvent;

std::string outputOf(const std::vector<std::string>& command) {
  const fixture::Outcome outcome = fixture::run(command, {getuid(), {}});
  EXPECT_EQ(outcome.exitCode(), 0) << outcome.output;
  return outcome.output;
}

void append(Json::Value& list, int64_t first, int64_t second) {
  Json::Value& pair = list.append(Json::arrayValue);
  pair.append(Json::Int64{first});
  pair.append(Json::Int64{second});
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
      ASSERT_TRUE(fixture::publish(sleeper.pid(), "key <b>", value) && recorded(value));
    }
  }
  ASSERT_TRUE(recorded("\"dead\""));
  daemon.stop(SIGTERM);
  ASSERT_TRUE(recorded("\"gap\""));
  daemon.start();
  ASSERT_TRUE(fixture::publish(getpid(), "key", "after the gap") && recorded("after the gap"));
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
    outputOf({"/usr/bin/python3", "-B", RECORDING_SCRIPT, sDir->path("generated")});
    writeRealRecording(sDir->path("real"));
  }
  static void TearDownTestSuite() { delete sDir; }

  // How many values each series has, and their sum.
  using Values = std::map<std::string, std::pair<int64_t, double>>;
  void expectCounted(const Values& values) const {
    EXPECT_EQ(values.size(), counts["values"].size());
    for (const auto& [name, value] : values) {
      EXPECT_EQ(value.first, counts["values"][name][0].asInt64()) << name;
      EXPECT_NEAR(value.second, counts["values"][name][1].asDouble(), 0.01) << name;
    }
  }

  // What `diagctl COMMAND --from RECORDING OPTIONS -o FILE` writes.
  std::string written(const std::string& command, const std::vector<std::string>& options = {}) const {
    const std::string file = sDir->path("written");
    std::vector<std::string> words = {fixture::staged("diagctl"), command, "--from", path, "-o", file};
    words.insert(words.end(), options.begin(), options.end());
    outputOf(words);
    return test::readFile(file);
  }

  static inline test::TempDir* sDir = nullptr;
  const std::string path = sDir->path(GetParam());
  const Json::Value counts =
      Torv::Base::parseJson(outputOf({"/usr/bin/python3", COUNT_SCRIPT, path})).value_or(Json::Value());
};

INSTANTIATE_TEST_SUITE_P(Recordings, RecordedViewsTest, testing::Values("generated", "real"));

TEST_P(RecordedViewsTest, theReplayedTimelineHoldsWhatTheLinesSay) {
  const auto timeline = fromFile(path);
  ASSERT_TRUE(timeline.ok()) << timeline.error();
  int64_t removed = 0;
  for (const KeyChange& change : timeline->changes) removed += !change.value;
  EXPECT_EQ(removed, counts["removed"].asInt64());
  EXPECT_EQ(static_cast<int64_t>(timeline->changes.size()) - removed, counts["changes"].asInt64());
  EXPECT_GE(counts["changes"].asInt64(), 4);

  Json::Value deaths(Json::arrayValue);
  for (const Death& death : timeline->deaths) append(deaths, death.seenMs, death.pid);
  EXPECT_EQ(deaths, counts["deaths"]);
  EXPECT_GE(deaths.size(), 1);
  Json::Value gaps(Json::arrayValue);
  for (const Gap& gap : timeline->gaps) append(gaps, gap.fromMs, gap.toMs);
  EXPECT_EQ(gaps, counts["gaps"]);
  EXPECT_EQ(gaps.size(), 1);

  Json::Value last(Json::objectValue);
  for (const ProcessSnapshot& process : processesAt(*timeline, timeline->endMs)) {
    for (const auto& [key, state] : process.keys) last[std::to_string(process.pid)][key] = state.value;
  }
  EXPECT_EQ(last, counts["last"]);

  Values values;
  for (const Series& series : timeline->series) {
    for (const Point& point : series.points) {
      if (!point.value) continue;
      auto& [count, sum] = values[series.source + '/' + series.metric];
      ++count;
      sum += *point.value;
    }
  }
  expectCounted(values);
}

TEST_P(RecordedViewsTest, theExportedTraceHoldsWhatTheLinesSay) {
  const ReadTrace trace(written("export"));
  Values values;
  std::map<uint64_t, int> open;
  size_t slices = 0;
  size_t instants = 0;
  uint64_t last = 0;
  for (const auto& packet : trace.whole.packet()) {
    if (!packet.has_track_event()) continue;
    EXPECT_GE(packet.timestamp(), std::exchange(last, packet.timestamp()));
    const TrackEvent& event = packet.track_event();
    if (event.type() == TrackEvent::TYPE_SLICE_BEGIN) {
      EXPECT_EQ(++open[event.track_uuid()], 1) << "slices of one key do not overlap";
      slices += event.categories(0) == "state";
    } else if (event.type() == TrackEvent::TYPE_SLICE_END) {
      EXPECT_EQ(--open[event.track_uuid()], 0);
    } else if (event.type() == TrackEvent::TYPE_INSTANT) {
      ++instants;
    } else {
      auto& [count, sum] = values[trace.path(event.track_uuid())];
      ++count;
      sum += event.has_counter_value() ? static_cast<double>(event.counter_value())
                                       : event.double_counter_value();
    }
  }
  EXPECT_EQ(slices, counts["changes"].asUInt64());
  EXPECT_EQ(instants, counts["deaths"].size());
  for (const auto& [uuid, count] : open) EXPECT_EQ(count, 0) << trace.path(uuid);
  expectCounted(values);
}

TEST_P(RecordedViewsTest, theLiveViewHoldsWhatTheLinesSay) {
  const tools::Screen screen(200, 60, {fixture::staged("diagctl"), "top", "--from", path});
  EXPECT_TRUE(screen.shows(" of " + std::to_string(counts["last"].size()) + " processes")) << screen.text();
}

// The page about a process that lives ends where the recording ends.
TEST_P(RecordedViewsTest, theReportHoldsWhatTheLinesSay) {
  const std::string html =
      written("report", {"--pid", counts["last"].getMemberNames().back(), "--last", "10m"});
  EXPECT_EQ(fixture::countOf(html, "<th colspan=\"3\">"), counts["last"].size() - 1);
  EXPECT_EQ(fixture::countOf(html, "<td>Nothing was seen for"), counts["gaps"].size());
  EXPECT_EQ(fixture::countOf(html, "</small><td>Process "), counts["deaths"].size());
}

}  // namespace
}  // namespace timeline
