// What the recorder writes, read back.
#include "timeline/Recorder.h"

#include <android-base/strings.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Answers.h"
#include "support/TempDir.h"

namespace timeline {
namespace {

using answers::clocksAt;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

class RecorderTest : public testing::Test {
 protected:
  Recorder newRecorder(uint64_t maxBytes = uint64_t{1} << 30) {
    auto recorder = Recorder::create({path, 1000, maxBytes, "machine"}, clocksAt(0));
    EXPECT_TRUE(recorder.ok()) << recorder.error();
    return *std::move(recorder);
  }

  std::string text() const { return test::readFile(path); }

  Timeline timeline() const {
    auto result = fromRecording(text());
    EXPECT_TRUE(result.ok()) << result.error();
    return *std::move(result);
  }

  test::TempDir dir;
  const std::string path = dir.path("recording.jsonl");
};

Answer statesAt(int64_t bootMs, std::map<int32_t, Texts> processes) {
  return {clocksAt(bootMs), std::move(processes), {}, {}};
}

TEST_F(RecorderTest, aRecordingGivesTheTimelineOfTheAnswersItWasMadeFrom) {
  Recorder recorder = newRecorder();
  Builder expected;
  for (int64_t second = 1; second <= 150; ++second) {
    Answer answer =
        statesAt(second * 1000, {{7, {{"n", std::to_string(second / 4)}, {"k", "</script>\n\x01é"}}}});
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

TEST_F(RecorderTest, onlyChangesAreWrittenAndAFullPictureEachMinute) {
  Recorder recorder = newRecorder();
  for (int64_t second = 0; second <= 121; ++second) {
    ASSERT_TRUE(recorder.add(statesAt(second * 1000, {{7, {{"k", second < 90 ? "a" : "b"}}}}), {}).ok());
  }
  EXPECT_THAT(
      android::base::Split(text(), "\n"),
      ElementsAre(HasSubstr("\"format\""), HasSubstr("\"processes\""), HasSubstr("\"processes\""),
                  HasSubstr(R"({"at":90000,"changed":{"7":{"k":"b"}}})"), HasSubstr("\"processes\""), ""));
}

TEST_F(RecorderTest, eachDeathAndNameIsToldOnce) {
  Recorder recorder = newRecorder();
  ASSERT_TRUE(recorder.add(statesAt(1000, {{7, {{"k", "a"}}}}), {}).ok());
  ASSERT_TRUE(recorder.addNames(1000, {{7, "app"}}).ok());
  for (const int64_t at : {2000, 3000}) {
    ASSERT_TRUE(recorder.add(statesAt(at, {{7, {{"k", "a"}}}}), {7}).ok());
    ASSERT_TRUE(recorder.addNames(at, {{7, "app"}}).ok());
  }
  EXPECT_THAT(timeline().deaths, ElementsAre(Death{2000, 7, std::nullopt, ""}));
  EXPECT_EQ(timeline().names.at(7), "app");
  EXPECT_THAT(android::base::Split(text(), "\n"), SizeIs(5));
}

TEST_F(RecorderTest, afterAGapComesAFullPictureAndAContext) {
  Recorder recorder = newRecorder();
  Answer answer = statesAt(1000, {{7, {{"k", "a"}}}});
  answer.context = {{"build_tags", ""}};
  ASSERT_TRUE(recorder.add(answer, {}).ok());
  EXPECT_FALSE(recorder.wantsContext(2000));
  for (const int64_t at : {1000, 3000}) ASSERT_TRUE(recorder.addGap(at, "the service ended").ok());
  EXPECT_TRUE(recorder.wantsContext(4000));
  ASSERT_TRUE(recorder.add(statesAt(5000, {}), {}).ok());
  EXPECT_THAT(timeline().gaps, ElementsAre(Gap{1000, 5000, "the service ended"}));
  EXPECT_EQ(timeline().changes.back(), (KeyChange{5000, 7, "k", std::nullopt, false}));
}

TEST_F(RecorderTest, theOldestMinutesGoWhenTheSizeIsReached) {
  constexpr uint64_t kMost = 100'000;
  Recorder recorder = newRecorder(kMost);
  const std::string page(500, 'x');
  for (int64_t second = 0; second < 1200; ++second) {
    ASSERT_TRUE(
        recorder.add(statesAt(second * 1000, {{7, {{"k", page + std::to_string(second)}}}}), {}).ok());
    // The minute that is being written is on top of it.
    ASSERT_LE(text().size(), kMost + 60 * 600) << second;
  }
  const Timeline rest = timeline();
  EXPECT_EQ(rest.endMs, 1'199'000);
  EXPECT_EQ(rest.beginMs % 60'000, 0) << "it begins with a full picture";
  EXPECT_GT(rest.beginMs, 0);
  EXPECT_EQ(rest.changes.size(), static_cast<size_t>((rest.endMs - rest.beginMs) / 1000 + 1))
      << "nothing else is lost";
}

TEST_F(RecorderTest, aCutLastLineIsNoFaultAndADamagedOneIsNamed) {
  Recorder recorder = newRecorder();
  for (const int64_t at : {1000, 2000, 3000}) {
    ASSERT_TRUE(recorder.add(statesAt(at, {{7, {{"k", std::to_string(at)}}}}), {}).ok());
  }
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
