// What the black box drops when too much is published, and what it never drops.
#include <gmock/gmock.h>

#include "storage/BlackBox.h"

namespace Torv::OS::Diagnostics {
namespace {

using testing::HasSubstr, testing::SizeIs;

std::string textOf(size_t length, int64_t number) {
  std::string digits = std::to_string(number);
  return std::string(length - digits.size(), '0') + digits;
}

// Publishes keys with that many values each until they hold 8 KiB of texts of `length` characters.
void addEightKiB(BlackBox& box, int pid, size_t length = 15, int values = 3) {
  const size_t keys = 8 * kKiB / (length * (values + 1));
  for (int round = 0; round < values; round++) {
    for (size_t key = 0; key < keys; key++) {
      box.addProcessState(pid, textOf(length, static_cast<int64_t>(key)), round, textOf(length, round));
    }
  }
}

class LimitsTest : public testing::Test {
 protected:
  // Publishes `keys` keys, numbered by age: the last one is the newest.
  void publishLarge(int pid, int64_t keys, size_t valueBytes) {
    const std::string value(valueBytes, 'x');
    for (int64_t i = 0; i < keys; i++) box.addProcessState(pid, textOf(15, i), i, value);
  }

  void expectAllThere(int pid) {
    const auto states = box.getAllForPid(pid);
    ASSERT_TRUE(states.has_value()) << pid;
    EXPECT_THAT(*states, SizeIs(testing::Ge(8 * kKiB / 60))) << pid;
  }

  const BlackBoxLimits limits{};
  int64_t now = 1'000'000;
  std::set<int> processes;
  BlackBox box{[this] { return now; }, [this](pid_t pid) { return processes.count(pid) > 0; }};
};

TEST_F(LimitsTest, aShareHoldsEightKiBOfTextsOfFifteenCharactersOrMore) {
  for (const size_t length : {15, 16, 17, 20, 31, 64, 500, 2000}) {
    for (int values = 1; values <= 3; values++) {
      BlackBox fresh;
      addEightKiB(fresh, 1, length, values);
      EXPECT_LE(fresh.memoryBytes(), limits.share()) << length << " " << values;
    }
  }
}

TEST_F(LimitsTest, processesWithinTheirShareLoseNothingToOneThatPublishesWithoutEnd) {
  const int attacker = static_cast<int>(kProtectedProcesses);
  for (int pid = 1; pid <= attacker; pid++) processes.insert(pid);
  for (int pid = 1; pid < attacker; pid++) addEightKiB(box, pid);
  processes.erase(1);
  box.markProcessAsDead(1);  // its states are kept for a minute, and nobody may take them before
  publishLarge(attacker, 500'000, 15);

  for (int pid = 1; pid < attacker; pid++) expectAllThere(pid);
  EXPECT_LE(box.memoryBytes(), limits.maxBytes);
  const auto left = *box.getAllForPid(attacker);
  EXPECT_EQ(left.count(textOf(15, 499'999)), 1U) << "the newest states stay";
  EXPECT_EQ(left.count(textOf(15, 0)), 0U);
  EXPECT_THAT(*box.takeLossReport(), HasSubstr(" " + std::to_string(attacker) + ": "));
}

TEST_F(LimitsTest, inventedPidsTakeNothingFromProcessesAndNoPlaceFromNewOnes) {
  for (int pid = 1; pid < static_cast<int>(kProtectedProcesses); pid++) {
    processes.insert(pid);
    addEightKiB(box, pid);
  }
  const auto invent = [&](int first, int last) {
    for (int pid = first; pid < last; pid++) box.addProcessState(pid, "key", 1, "value");
  };
  invent(1'000'000, 1'600'000);
  EXPECT_THAT(box.getAllLivePids(), SizeIs(limits.maxProcesses));
  for (const int pid : {1'000'001, 2'000'000}) {  // the first was invented before a process got it
    processes.insert(pid);
    addEightKiB(box, pid);
  }
  invent(3'000'000, 3'600'000);
  for (const int pid : processes) expectAllThere(pid);
  EXPECT_THAT(box.getAllLivePids(), SizeIs(limits.maxProcesses));
}

TEST_F(LimitsTest, thoseAboveTheirShareAreCutBeforeInventedPidsAndTheseBeforeProcesses) {
  processes = {1, 2};
  addEightKiB(box, 1);
  publishLarge(2, 200, 4000);
  for (int pid = 1'000'000; box.takeLossReport() == std::nullopt; pid++) addEightKiB(box, pid);
  expectAllThere(1);
  EXPECT_THAT(*box.getAllForPid(2), SizeIs(limits.share() / 4100)) << "the process above its share was cut";
  expectAllThere(1'000'000);  // of the invented pids, the last ones went
}

TEST_F(LimitsTest, oneProcessIsCutToItsNewerHalfBeforeItsBlockGetsLarge) {
  processes = {1};
  publishLarge(1, 2000, 4000);
  EXPECT_LE(box.memoryBytes(), limits.maxProcessBytes);
  EXPECT_GT(box.memoryBytes(), limits.maxProcessBytes / 3);
  EXPECT_EQ(box.getAllForPid(1)->count(textOf(15, 1999)), 1U);
}

TEST_F(LimitsTest, tooManyGlobalsAreRefused) {
  box.addGlobalState("telemetry", "service_session_id", 1, std::string(kMaxTextBytes, 'x'));
  for (int i = 0; i < 10'000; i++) box.addGlobalState("space " + std::to_string(i), "key", 1, "value");
  EXPECT_THAT(box.getAllGlobalStates(), SizeIs(testing::AllOf(testing::Gt(5U), testing::Lt(50U))));
  EXPECT_EQ(box.getAllGlobalStates().count("telemetry"), 1U);
}

TEST_F(LimitsTest, textsThatNoAtomCarriesAreCountedByProcessAndReportedOnceAMinute) {
  const std::string tooLong(kMaxTextBytes + 1, 'x');
  EXPECT_EQ(box.takeLossReport(), std::nullopt);
  box.addProcessState(7, tooLong, 1, "value");
  box.addGlobalState(tooLong, "key", 1, "value");
  for (const int pid : {8, 8}) box.addProcessState(pid, "key", 1, tooLong);
  EXPECT_EQ(box.getAllForPid(7), std::nullopt);
  EXPECT_THAT(box.getAllGlobalStates(), testing::IsEmpty());
  EXPECT_THAT(*box.takeLossReport(), testing::AllOf(HasSubstr("refused 4 states"), HasSubstr(" 7: 1,"),
                                                    HasSubstr(" 8: 2,"), HasSubstr(" others: 1")));
  for (int pid = 0; pid < 1000; pid++) box.addProcessState(pid, "key", 1, tooLong);
  now += kLossLogPeriodSeconds - 1;
  EXPECT_EQ(box.takeLossReport(), std::nullopt);
  now += 1;
  EXPECT_THAT(*box.takeLossReport(), HasSubstr(" others: " + std::to_string(1000 - kMaxCountedProcesses)));
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
