#include "storage/BlackBox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Torv::OS::Diagnostics {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

class BlackBoxTest : public testing::Test {
 protected:
  int64_t mNow = 1'000'000;
  BlackBox mBox{[this] { return mNow; }};
};

TEST_F(BlackBoxTest, ForgetsADeadProcessWhenItsTimeHasRunOut) {
  mBox.addProcessState(1, "k", 2, "dead");
  mBox.addProcessState(1, "k", 1, "older");  // no reset for processes
  mBox.addProcessState(-2, "k", 1, "alive");
  mBox.addGlobalState("telemetry", "k", 1, "global");
  mBox.markProcessAsDead(1);
  mBox.markProcessAsDead(3);
  EXPECT_THAT(*mBox.getAllForPid(1), ElementsAre(Pair("k", "dead")));

  mNow += 59;
  mBox.markProcessAsDead(1);                // the first death stands
  mBox.addProcessState(1, "k", 3, "late");  // and a late value changes nothing about it
  EXPECT_THAT(mBox.getAllLivePids(), ElementsAre(-2));
  mBox.cleanupAllWithTtl(60);
  EXPECT_THAT(mBox.getAllProcessStates().at(1), ElementsAre(Pair("k", "late")));
  mNow += 1;
  mBox.cleanupAllWithTtl(60);
  EXPECT_EQ(mBox.getAllForPid(1), std::nullopt);

  mNow += 1'000'000;
  mBox.cleanupAllWithTtl(60);
  EXPECT_THAT(mBox.getAllProcessStates(), ElementsAre(Pair(-2, ElementsAre(Pair("k", "alive")))));
  EXPECT_EQ(mBox.getAllGlobalStates().size(), 1U);

  mBox.addProcessState(1, "new", 1, "afresh");
  EXPECT_THAT(*mBox.getAllForPid(1), ElementsAre(Pair("new", "afresh")));
  EXPECT_EQ(mBox.getAllLivePids().size(), 2U);
}

TEST_F(BlackBoxTest, ResetsAGlobalWhoseClockStartedOver) {
  const auto id = [this] { return mBox.getAllGlobalStates().at("telemetry").at("id"); };
  mBox.addGlobalState("telemetry", "id", 200, "first");
  mBox.addGlobalState("telemetry", "other", 200, "stays");
  mBox.addGlobalState("telemetry", "id", 200, "equal");
  EXPECT_THAT(id(), HasSubstr(R"("v":"first")"));
  mBox.addGlobalState("telemetry", "id", 100, "restarted");
  EXPECT_THAT(id(), HasSubstr(R"("v":"restarted")"));
  mBox.addGlobalState("telemetry", "id", 150, "newer");  // than what is left, if older than what was
  EXPECT_THAT(id(), HasSubstr(R"("v":"newer")"));
  EXPECT_THAT(mBox.getAllGlobalStates().at("telemetry").at("other"), HasSubstr(R"("v":"stays")"));
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
