// What the recorder writes, read back.
#include "timeline/Recorder.h"

#include <android-base/strings.h>
#include <gmock/gmock.h>

#include "Answers.h"
#include "support/TempDir.h"

namespace timeline {
namespace {

using answers::clocksAt;
using testing::ElementsAre;
using testing::HasSubstr;

class RecorderTest : public testing::Test {
 protected:
  void add(int64_t bootMs, std::map<int32_t, Texts> processes, const std::set<int32_t>& dead = {}) {
    ASSERT_TRUE(recorder.add({clocksAt(bootMs), std::move(processes), {}, {}}, dead).ok());
  }

  std::string text() const { return test::readFile(path); }

  Timeline timeline() const {
    auto result = fromRecording(text());
    EXPECT_TRUE(result.ok()) << result.error();
    return *std::move(result);
  }

  test::TempDir dir;
  const std::string path = dir.path("recording.jsonl");
  static constexpr uint64_t kMaxBytes = 100'000;
  Recorder recorder = *Recorder::create({path, 1000, kMaxBytes, "machine"}, clocksAt(0));
};

TEST_F(RecorderTest, aRecordingGivesTheTimelineOfTheAnswersItWasMadeFrom) {
  Builder expected;
  for (int64_t second = 1; second <= 150; ++second) {
    Answer answer = {clocksAt(second * 1000), {}, {}, {}};
    answer.processes[7] = {{"n", std::to_string(second / 4)}, {"k", "</script>\n\x01é"}};
    if (second % 20 == 0) answer.processes[second] = {{"a", ""}};
    if (recorder.wantsContext(answer.clocks.bootMs)) {
      const int64_t report = answer.clocks.monotonicMs;
      answer.context = {
          {"s", answers::history(report, {{report - 1000, R"("x_%": 1)"}, {report, R"("x_%": 2)"}})}};
      answer.globals = {{"telemetry", {{"id", R"({"dt_ms":5,"v":"x"})"}}}};
    }
    ASSERT_TRUE(recorder.add(answer, {}).ok());
    expected.add(answer);
  }
  const Timeline recorded = timeline();
  EXPECT_EQ(recorded.machine, "machine");
  EXPECT_EQ(recorded.changes, expected.timeline().changes);
  EXPECT_EQ(recorded.series, expected.timeline().series);
  EXPECT_EQ(recorded.globals, expected.timeline().globals);
  EXPECT_EQ(recorded.endMs, 148'000) << "of the last line";
}

TEST_F(RecorderTest, eachChangeNameAndDeathIsWrittenOnceAndAFullPictureEachMinute) {
  for (int64_t second = 1; second <= 121; ++second) {
    const std::set<int32_t> dead = second < 100 ? std::set<int32_t>{} : std::set<int32_t>{7};
    add(second * 1000, {{7, {{"k", second < 90 ? "a" : "b"}}}}, dead);
    ASSERT_TRUE(recorder.addNames(second * 1000, {{7, "app"}}).ok());
  }
  const auto picture = HasSubstr("\"processes\"");
  EXPECT_THAT(
      android::base::Split(text(), "\n"),
      ElementsAre(HasSubstr("\"format\""), picture, R"({"at":1000,"names":{"7":"app"}})", picture,
                  R"({"at":61000,"names":{"7":"app"}})", R"({"at":90000,"changed":{"7":{"k":"b"}}})",
                  R"({"at":100000,"dead":[7]})", picture, R"({"at":121000,"names":{"7":"app"}})", ""));
  EXPECT_THAT(timeline().deaths, ElementsAre(Death{100'000, 7, std::nullopt, ""}));
  EXPECT_EQ(timeline().names.at(7), "app");
}

TEST_F(RecorderTest, afterAGapComesAFullPictureAndAContext) {
  ASSERT_TRUE(recorder.add({clocksAt(1000), {{7, {{"k", "a"}}}}, {{"build_tags", ""}}, {}}, {}).ok());
  EXPECT_FALSE(recorder.wantsContext(2000));
  for (const int64_t at : {1000, 3000}) ASSERT_TRUE(recorder.addGap(at, "the service ended").ok());
  EXPECT_TRUE(recorder.wantsContext(4000));
  add(5000, {});
  EXPECT_THAT(timeline().gaps, ElementsAre(Gap{1000, 5000, "the service ended"}));
  EXPECT_EQ(timeline().changes.back(), (KeyChange{5000, 7, "k", std::nullopt, false}));
}

TEST_F(RecorderTest, theOldestMinutesGoWhenTheSizeIsReached) {
  const std::string page(500, 'x');
  for (int64_t second = 0; second < 1200; ++second) {
    add(second * 1000, {{7, {{"k", page + std::to_string(second)}}}});
    // The minute that is being written is on top of it.
    ASSERT_LE(text().size(), kMaxBytes + 60 * 600) << second;
  }
  const Timeline rest = timeline();
  EXPECT_EQ(rest.endMs, 1'199'000);
  EXPECT_EQ(rest.beginMs % 60'000, 0) << "it begins with a full picture";
  EXPECT_GT(rest.beginMs, 0);
  EXPECT_EQ(rest.changes.size(), static_cast<size_t>((rest.endMs - rest.beginMs) / 1000 + 1))
      << "nothing else is lost";
}

TEST_F(RecorderTest, aCutLastLineIsNoFaultAndADamagedOneIsNamed) {
  for (const int64_t at : {1000, 2000, 3000}) add(at, {{7, {{"k", std::to_string(at)}}}});
  const std::string whole = text();
  const size_t lastLine = whole.rfind('\n', whole.size() - 2) + 1;
  for (size_t size = lastLine; size < whole.size(); ++size) {
    const auto cut = fromRecording(std::string_view(whole).substr(0, size));
    ASSERT_TRUE(cut.ok()) << size << cut.error();
    EXPECT_EQ(cut->changes.size(), 2);
  }
  std::string damaged = whole;
  damaged[lastLine - 3] = 'x';
  const auto refused = fromRecording(damaged);
  ASSERT_FALSE(refused.ok());
  EXPECT_THAT(refused.error().message(), HasSubstr("line 3:"));
  EXPECT_FALSE(fromRecording("").ok());
  EXPECT_FALSE(fromRecording(whole.substr(0, 20)).ok());
}

TEST_F(RecorderTest, aLostWriteIsAnError) {
  const auto missing = Recorder::create({dir.path("no/such"), 1000, 1, ""}, clocksAt(0));
  ASSERT_FALSE(missing.ok());
  EXPECT_THAT(missing.error().message(), HasSubstr("no/such"));
  EXPECT_FALSE(Recorder::create({"/dev/full", 1000, 1, ""}, clocksAt(0)).ok());
}

}  // namespace
}  // namespace timeline
