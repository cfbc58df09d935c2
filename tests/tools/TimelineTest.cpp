#include "timeline/Timeline.h"

#include <gmock/gmock.h>

#include "Answers.h"
#include "base/Json.h"
#include "timeline/Sources.h"

namespace timeline {
namespace {

using answers::clocksAt;
using answers::history;
using testing::ElementsAre;

constexpr std::nullopt_t kGap = std::nullopt;

// The answer as the report of a reporter that process 7's death has started.
Json::Value reportOf(const Answer& answer) {
  Json::Value report = toDocument(answer);
  report["pid"] = 7;
  report["signal"] = 11;
  report["program"] = "/bin/app";
  report["died"] = report["asked"];
  report["died"]["boot_ms"] = 9900;
  return report;
}

Answer contextAt(int64_t bootMs, const std::string& source, const std::string& text) {
  return {clocksAt(bootMs), {}, {{source, text}, {"build_tags", "dev"}}, {}};
}

TEST(TimelineTest, stallTotalsBecomeTheShareOfTimeStalled) {
  const Timeline timeline = fromAnswer(contextAt(5000, "psi_cpu_history",
                                                 history(4500, {{1000, R"("some_total": 100)"},
                                                                {2000, R"("some_total": 250100)"},
                                                                {3000, ""},
                                                                {4000, R"("some_total": 300000)"},
                                                                {4400, R"("some_total": 20)"}})));
  // No share at the first sample, in and after one without values, and when the counter has restarted.
  const std::vector<Point> points = {{1500, kGap}, {2500, 25}, {3500, kGap}, {4500, kGap}, {4900, kGap}};
  EXPECT_THAT(timeline.series,
              ElementsAre(Series{"psi_cpu_history", "some_stalled_%", Unit::Percent, points}));
}

TEST(TimelineTest, samplesOfReportsThatOverlapMoveToTheBootClockOnceAndMissedOnesAreAGap) {
  const std::string one = R"("x_KB": 1)";
  Builder builder;
  builder.add(contextAt(3500, "s", history(3000, {{1000, one}, {2000, one}, {3000, one}})));
  // The boot clock's reading is a millisecond late: the same samples all the same.
  builder.addContext({4501, 4000, 0}, {{"s", history(4000, {{2000, one}, {3000, one}, {4000, one}})}}, {});
  // After its restart the service has a single sample.
  builder.add(contextAt(9500, "s", history(9000, {{9000, one}})));
  const std::vector<Point> points = {{1500, 1}, {2500, 1}, {3500, 1}, {4501, 1}, {5500, kGap}, {9500, 1}};
  EXPECT_THAT(builder.timeline().series, ElementsAre(Series{"s", "x_KB", Unit::Kibibytes, points}));
  EXPECT_EQ(builder.timeline().context, (std::map<std::string, std::string>{{"build_tags", "dev"}}));
  EXPECT_EQ(wallMsOf(builder.timeline(), 8500), 1'600'000'008'500);
}

TEST(TimelineTest, aGlobalStateIsDatedBackAndPublishingItAgainIsNoChange) {
  Builder builder;
  const auto add = [&](int64_t at, const std::string& text) {
    builder.addContext(clocksAt(at), {{"build_tags", ""}}, {{"telemetry", {{"id", text}}}});
  };
  add(5000, R"({"dt_ms": 1000, "v": "one"})");
  add(6000, R"({"dt_ms": 100, "v": "one"})");
  add(7000, R"({"dt_ms": 100, "v": "two"})");
  add(8000, R"({"dt_ms": -9223372036854775808, "v": "three"})");
  EXPECT_THAT(builder.timeline().globals, ElementsAre(GlobalChange{4000, "telemetry", "id", "one"},
                                                      GlobalChange{6900, "telemetry", "id", "two"}));
}

TEST(TimelineTest, onlyWhatAnAnswerChangesIsAChangeAndEachTimeHasItsProcesses) {
  Builder builder;
  builder.addStates(clocksAt(1000), {{7, {{"screen", "home"}, {"user", "a"}}}, {8, {{"a", "b"}}}});
  builder.addStates(clocksAt(2000), {{7, {{"screen", "map"}, {"user", "a"}}}, {8, {{"a", "b"}}}});
  builder.addDeath({2500, 7, std::nullopt, ""});
  builder.setName(7, "app");
  builder.addStates(clocksAt(3000), {{7, {{"screen", "map"}, {"user", "a"}}}});
  EXPECT_THAT(builder.timeline().changes,
              ElementsAre(KeyChange{1000, 7, "screen", "home", true}, KeyChange{1000, 7, "user", "a", true},
                          KeyChange{1000, 8, "a", "b", true}, KeyChange{2000, 7, "screen", "map", false},
                          KeyChange{3000, 8, "a", kGap, false}));
  const auto at = [&](int64_t ms) { return processesAt(builder.timeline(), ms); };
  EXPECT_THAT(at(999), testing::IsEmpty());
  EXPECT_EQ(at(1999)[0].keys["screen"].value, "home");
  EXPECT_EQ(at(2000)[0].keys["screen"].changedMs, 2000);
  EXPECT_EQ(at(2499)[0].deadMs, kGap);
  ASSERT_THAT(at(3000), testing::SizeIs(1));
  EXPECT_EQ(at(3000)[0].name, "app");
  EXPECT_EQ(at(3000)[0].deadMs, 2500);
  // What the pid publishes after the death is another process's.
  builder.addStates(clocksAt(4000), {{7, {{"screen", "new"}}}});
  EXPECT_EQ(at(4000)[0].deadMs, kGap);
}

TEST(TimelineTest, droppingThePastKeepsWhatStillHolds) {
  Builder builder;
  builder.addStates(clocksAt(1000), {{7, {{"screen", "home"}, {"user", "a"}}}});
  builder.addDeath({1500, 7, std::nullopt, ""});
  builder.addStates(clocksAt(2000), {{7, {{"screen", "home"}}}, {8, {{"a", "b"}}}});
  const auto before = processesAt(builder.timeline(), 5000);
  builder.dropBefore(2000);
  builder.dropBefore(2001);
  EXPECT_THAT(builder.timeline().changes, testing::SizeIs(2));
  const auto after = processesAt(builder.timeline(), 5000);
  ASSERT_EQ(after.size(), before.size());
  EXPECT_EQ(after[0].deadMs, 1500);
  EXPECT_EQ(after[0].keys.at("screen").changedMs, 1000);
}

TEST(TimelineTest, anAnswersDocumentGivesTheSameTimelineAgain) {
  Answer answer =
      contextAt(10'000, "cpu_utilization_history", history(9500, {{9000, R"("CpuUtilization_%": 93.6)"}}));
  answer.processes = {{7, {{"json", R"({"a":[1,"b"]})"}, {"text", "</script>\x01"}}}};
  answer.globals = {{"telemetry", {{"id", R"({"dt_ms":5,"v":"x"})"}}}};
  const Json::Value report = reportOf(answer);
  const auto timeline = fromReport(report);
  ASSERT_TRUE(timeline.ok()) << timeline.error();
  const Timeline live = fromAnswer(answer);
  EXPECT_EQ(timeline->series, live.series);
  EXPECT_EQ(timeline->changes, live.changes);
  EXPECT_EQ(timeline->globals, live.globals);
  EXPECT_THAT(timeline->deaths, ElementsAre(Death{9900, 7, 11, "/bin/app"}));
  EXPECT_EQ(timeline->endMs, 9900);

  for (const char* const member : {"format", "version", "asked", "died", "pid", "all_processes", "system"}) {
    Json::Value damaged = report;
    damaged[member] = "other";
    const auto refused = fromReport(damaged);
    ASSERT_FALSE(refused.ok()) << member;
    EXPECT_THAT(refused.error().message(), testing::HasSubstr(member));
  }
}

TEST(TimelineTest, aCrashReportAddsWhatOnlyTheReporterKnows) {
  const Json::Value report = reportOf({clocksAt(9950), {}, {{"build_fingerprint", "b/1"}}, {}});
  Builder builder;
  builder.addStates(clocksAt(9000), {{7, {{"screen", "home"}}}});
  builder.addDeath({9100, 8, kGap, ""});
  // Published before the death, but the recorder has looked later than the reporter.
  builder.addStates(clocksAt(10'000), {{7, {{"screen", "map"}}}});
  builder.addDeath({10'000, 7, kGap, ""});
  builder.addDeath({80'000, 7, kGap, ""});  // of a later process with the same pid
  Timeline recorded = std::move(builder).finish();

  const auto timeline = withReport(recorded, report);
  ASSERT_TRUE(timeline.ok()) << timeline.error();
  EXPECT_THAT(timeline->deaths, ElementsAre(Death{9100, 8, kGap, ""}, Death{9900, 7, 11, "/bin/app"},
                                            Death{80'000, 7, kGap, ""}));
  EXPECT_EQ(processesAt(*timeline, 9900)[0].keys["screen"].value, "map");
  EXPECT_EQ(processesAt(*timeline, 9900)[0].deadMs, 9900);
  EXPECT_EQ(timeline->names.at(7), "app");
  EXPECT_EQ(timeline->context.at("build_fingerprint"), "b/1");
  EXPECT_EQ(timeline->document, report);
  EXPECT_EQ(timeline->endMs, recorded.endMs);

  recorded.clocks.wallMs += 3'600'000;
  EXPECT_FALSE(withReport(recorded, report).ok()) << "of another boot";
}

}  // namespace
}  // namespace timeline
