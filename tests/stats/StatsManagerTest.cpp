#include "stats/StatsManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "FakeStatsd.h"
#include "stats/StatsManagerBuilder.h"
#include "support/LogCapture.h"

namespace Torv::OS::Diagnostics {
namespace {

using libstatsd::PublishStatus;
using testing::IsEmpty;

class StatsManagerTest : public testing::Test {
 protected:
  StatsManagerTest() { mStatsd = {}; }

  void expectRefusal(StatsManagerBuilder builder, const std::string& message) {
    EXPECT_EQ(std::move(builder).build(), nullptr);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, "libdiagnostics-stats", message)) << message;
    EXPECT_EQ(mLog.lines().size(), 1U);
    mLog.clear();
  }

  test::FakeStatsd& mStatsd = test::fakeStatsd();
  test::LogCapture mLog;
};

StatsManagerBuilder complete() {
  StatsManagerBuilder builder;
  builder.addAtomId(1).addAtomId(2).addAllowedLogSource("AID_APP").setConfigId(3);
  return builder;
}

TEST_F(StatsManagerTest, AsksStatsdForTheServicesAtoms) {
  const std::unique_ptr<StatsManager> manager = StatsManager::makeDefaultManager();
  std::vector<std::string> calls = {
      "atom 110010",
      "atom 111983",
      "source AID_APP",
      "source AID_SYSTEM",
      "source com.pellux.tarnwick",
      "source com.pellux.loameth",
      "source com.pellux.quorrel",
      "source com.pellux.vantry",
      "source com.pellux.hobbrin",
      "source com.pellux.dobrel",
      "source com.pellux.skelmir",
  };
  if (getuid() != 0) {  // root cannot have a feed
    const std::string id = "57476 " + std::to_string(getuid());
    calls.insert(calls.end(), {"publish " + id, "collect " + id});
  }
  EXPECT_EQ(manager != nullptr, getuid() != 0);
  EXPECT_EQ(mLog.count("Failed to build stats manager with no uid\n"), getuid() == 0 ? 1U : 0U);
  EXPECT_EQ(mStatsd.calls, calls);
}

TEST_F(StatsManagerTest, TellsWhatIsMissingBeforeItPublishes) {
  expectRefusal(StatsManagerBuilder(), "Failed to build stats manager with empty atoms\n");
  EXPECT_THAT(mStatsd.calls, IsEmpty());

  StatsManagerBuilder builder;
  builder.addAtomId(7);
  expectRefusal(builder, "Failed to build stats manager with empty sources\n");
  builder.addAllowedLogSource("AID_APP");
  expectRefusal(builder, "Failed to build stats manager with no config id\n");
  builder.setConfigId(1).setUid(0);
  expectRefusal(builder, "Failed to build stats manager with no uid\n");
  mStatsd.refusedAtom = 7;
  expectRefusal(builder, "Failed to add atom to configuration\n");
  for (const std::string& call : mStatsd.calls) EXPECT_EQ(call.find("publish"), std::string::npos);
}

TEST_F(StatsManagerTest, TellsWhyStatsdRefused) {
  const std::string failed = "Failed to publish configuration to statsd due to ";
  mStatsd.status = PublishStatus::FailedToReachService;
  expectRefusal(complete(), failed + "FailedToReachService\n");
  mStatsd.status = PublishStatus::ConfigurationFailure;
  expectRefusal(complete(), failed + "ConfigurationFailure\n");
  mStatsd.status = static_cast<PublishStatus>(42);
  expectRefusal(complete(), failed + "an unknown error\n");
}

TEST_F(StatsManagerTest, BringsNothingWhereAFetchFailsAndGoesOn) {
  const std::unique_ptr<StatsManager> manager = complete().build();
  ASSERT_NE(manager, nullptr);
  EXPECT_EQ(mStatsd.calls.back(), "collect 3 1000");  // the system's uid, where none is said
  mStatsd.reports = libstatsd::Error{"gone"};
  EXPECT_THAT(manager->fetchReports(), IsEmpty());

  libstatsd::AtomReport report;
  report.elapsedTimestampNs = 9;
  report.atom.mutable_unknown_fields()->AddLengthDelimited(110010, "\x08\x05");
  mStatsd.reports = std::vector<libstatsd::Report>{{report}, {}, {report}};
  const std::vector<ApplicationState> states = manager->fetchReports();
  ASSERT_EQ(states.size(), 2U);
  EXPECT_EQ(states[1].pid, 5);
  EXPECT_EQ(states[1].timestamp, 9);
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
