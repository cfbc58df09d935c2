#include "stats/StatsManager.h"

#include <gtest/gtest.h>
#include <statsd/StatsdCollection.h>
#include <statsd/StatsdConfiguration.h>
#include <unistd.h>

#include "stats/StatsManagerBuilder.h"
#include "support/LogCapture.h"

// What statsd's client library is asked in this program, and what it answers.
struct FakeStatsd {
  std::string asked;
  int32_t refusedAtom = 0;
  libstatsd::PublishStatus status = libstatsd::PublishStatus::Success;
  std::variant<std::vector<libstatsd::Report>, libstatsd::Error> reports;
};
static FakeStatsd gStatsd;

// Stands before the client library's two classes, so that statsd can refuse and fail.
namespace libstatsd {

bool StatsdConfiguration::addEventAtomId(int32_t atomId) {
  gStatsd.asked += "atom " + std::to_string(atomId) + ", ";
  return atomId != gStatsd.refusedAtom;
}

void StatsdConfiguration::addAllowedLogSource(const std::string& source) {
  gStatsd.asked += "source " + source + ", ";
}

PublishStatus StatsdConfiguration::publishConfigurationBlocked(int32_t configId, int32_t uid) {
  gStatsd.asked += "publish " + std::to_string(configId) + " " + std::to_string(uid) + ", ";
  return gStatsd.status;
}

void StatsdCollection::addConfiguration(int32_t configId, int32_t uid) {
  gStatsd.asked += "collect " + std::to_string(configId) + " " + std::to_string(uid);
}

std::variant<std::vector<Report>, Error> StatsdCollection::fetchReportsBlocked() {
  return gStatsd.reports;
}

}  // namespace libstatsd

namespace Torv::OS::Diagnostics {
namespace {

using libstatsd::PublishStatus;

class StatsManagerTest : public testing::Test {
 protected:
  StatsManagerTest() { gStatsd = {}; }

  void expectRefusal(StatsManagerBuilder builder, const std::string& message) {
    mLog.clear();
    EXPECT_EQ(std::move(builder).build(), nullptr);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, "libdiagnostics-stats", message)) << message;
    EXPECT_EQ(mLog.lines().size(), 1U);
  }

  test::LogCapture mLog;
};

TEST_F(StatsManagerTest, AsksStatsdForTheServicesAtoms) {
  const bool isRoot = getuid() == 0;  // who cannot have a feed
  EXPECT_EQ(StatsManager::makeDefaultManager() == nullptr, isRoot);
  const std::string id = "57476 " + std::to_string(getuid());
  EXPECT_EQ(gStatsd.asked,
            "atom 110010, atom 111983, source AID_APP, source AID_SYSTEM, source com.pellux.tarnwick, "
            "source com.pellux.loameth, source com.pellux.quorrel, source com.pellux.vantry, "
            "source com.pellux.hobbrin, source com.pellux.dobrel, source com.pellux.skelmir, " +
                (isRoot ? "" : "publish " + id + ", collect " + id));
}

TEST_F(StatsManagerTest, TellsWhatIsMissingBeforeItPublishesAndThenWhyStatsdRefused) {
  StatsManagerBuilder builder;
  expectRefusal(builder, "Failed to build stats manager with empty atoms\n");
  builder.addAtomId(7);
  expectRefusal(builder, "Failed to build stats manager with empty sources\n");
  builder.addAllowedLogSource("AID_APP");
  expectRefusal(builder, "Failed to build stats manager with no config id\n");
  builder.setConfigId(1).setUid(0);
  expectRefusal(builder, "Failed to build stats manager with no uid\n");
  gStatsd.refusedAtom = 7;
  expectRefusal(builder, "Failed to add atom to configuration\n");
  EXPECT_EQ(gStatsd.asked.find("publish"), std::string::npos);

  gStatsd.refusedAtom = 0;
  builder.setUid(1);
  const std::string failed = "Failed to publish configuration to statsd due to ";
  gStatsd.status = PublishStatus::FailedToReachService;
  expectRefusal(builder, failed + "FailedToReachService\n");
  gStatsd.status = PublishStatus::ConfigurationFailure;
  expectRefusal(builder, failed + "ConfigurationFailure\n");
  gStatsd.status = static_cast<PublishStatus>(42);
  expectRefusal(builder, failed + "an unknown error\n");
}

TEST_F(StatsManagerTest, BringsNothingWhereAFetchFailsAndGoesOn) {
  StatsManagerBuilder builder;
  builder.addAtomId(1).addAllowedLogSource("AID_APP").setConfigId(3);
  const std::unique_ptr<StatsManager> manager = std::move(builder).build();
  ASSERT_NE(manager, nullptr);
  EXPECT_NE(gStatsd.asked.find("collect 3 1000"), std::string::npos);  // the system's uid, if none is said
  gStatsd.reports = libstatsd::Error{"gone"};
  EXPECT_TRUE(manager->fetchReports().empty());

  libstatsd::AtomReport report;
  report.elapsedTimestampNs = 9;
  report.atom.mutable_unknown_fields()->AddLengthDelimited(110010, "\x08\x05");
  gStatsd.reports = std::vector<libstatsd::Report>{{report}, {}, {report}};
  const std::vector<ApplicationState> states = manager->fetchReports();
  ASSERT_EQ(states.size(), 2U);
  EXPECT_EQ(states[1].pid, 5);
  EXPECT_EQ(states[1].timestamp, 9);
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
