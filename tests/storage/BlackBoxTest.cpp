#include "storage/BlackBox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Torv::OS::Diagnostics {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

class BlackBoxTest : public testing::Test {
 protected:
  int64_t mNow = 1'000'000;
  BlackBox mBox{[this] { return mNow; }};
};

TEST_F(BlackBoxTest, AnswersPerProcessAndForAll) {
  EXPECT_EQ(mBox.getAllForPid(7), std::nullopt);
  mBox.addProcessState(7, "screen", 20, "home");
  mBox.addProcessState(7, "screen", 10, "boot");  // older, and no reset
  mBox.addProcessState(-1, "screen", 10, "none");
  EXPECT_THAT(*mBox.getAllForPid(7), UnorderedElementsAre(Pair("screen", "home")));
  EXPECT_THAT(mBox.getAllProcessStates(),
              UnorderedElementsAre(Pair(7, UnorderedElementsAre(Pair("screen", "home"))),
                                   Pair(-1, UnorderedElementsAre(Pair("screen", "none")))));
  EXPECT_THAT(mBox.getAllGlobalStates(), IsEmpty());
}

TEST_F(BlackBoxTest, ForgetsADeadProcessWhenItsTimeHasRunOut) {
  mBox.addProcessState(1, "k", 1, "dead");
  mBox.addProcessState(2, "k", 1, "alive");
  mBox.addGlobalState("telemetry", "k", 1, "global");
  mBox.markProcessAsDead(1);
  mBox.markProcessAsDead(3);
  EXPECT_THAT(mBox.getAllLivePids(), ElementsAre(2));

  mNow += 30;
  mBox.markProcessAsDead(1);                // the first death stands
  mBox.addProcessState(1, "k", 2, "late");  // and a late value changes nothing about it
  EXPECT_THAT(mBox.getAllLivePids(), ElementsAre(2));
  mNow += 29;
  mBox.cleanupAllWithTtl(60);
  EXPECT_THAT(*mBox.getAllForPid(1), ElementsAre(Pair("k", "late")));
  mNow += 1;
  mBox.cleanupAllWithTtl(60);
  EXPECT_EQ(mBox.getAllForPid(1), std::nullopt);

  mNow += 1'000'000;
  mBox.cleanupAllWithTtl(60);
  EXPECT_THAT(*mBox.getAllForPid(2), ElementsAre(Pair("k", "alive")));
  EXPECT_EQ(mBox.getAllGlobalStates().size(), 1U);
}

TEST_F(BlackBoxTest, TakesAForgottenPidAsANewProcess) {
  mBox.addProcessState(1, "old", 100, "x");
  mBox.markProcessAsDead(1);
  mBox.cleanupAllWithTtl(0);
  mBox.addProcessState(1, "new", 1, "y");
  EXPECT_THAT(*mBox.getAllForPid(1), ElementsAre(Pair("new", "y")));
  EXPECT_THAT(mBox.getAllLivePids(), ElementsAre(1));
}

TEST_F(BlackBoxTest, ResetsAGlobalWhoseClockStartedOver) {
  mBox.addGlobalState("telemetry", "id", 200, "first");
  mBox.addGlobalState("telemetry", "other", 200, "stays");
  mBox.addGlobalState("telemetry", "id", 200, "equal");
  EXPECT_THAT(mBox.getAllGlobalStates().at("telemetry").at("id"), HasSubstr(R"("v":"first")"));
  mBox.addGlobalState("telemetry", "id", 100, "restarted");
  EXPECT_THAT(mBox.getAllGlobalStates().at("telemetry"),
              UnorderedElementsAre(Pair("id", HasSubstr(R"("v":"restarted")")),
                                   Pair("other", HasSubstr(R"("v":"stays")"))));
  mBox.addGlobalState("telemetry", "id", 150, "newer");  // newer than what is left, older than what was
  EXPECT_THAT(mBox.getAllGlobalStates().at("telemetry").at("id"), HasSubstr(R"("v":"newer")"));
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
