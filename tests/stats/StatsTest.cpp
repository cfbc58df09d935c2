// The feed: how it configures statsd, and how it decodes atoms.
#include <gmock/gmock.h>
#include <statsd/StatsdCollection.h>
#include <statsd/StatsdConfiguration.h>

#include "AtomDecoder.h"
#include "stats/StatsManagerBuilder.h"
#include "support/LogCapture.h"

// What the program asks of statsd's client library, and what the library answers.
struct FakeStatsd {
  std::string asked;
  int32_t refusedAtom = 0;
  libstatsd::PublishStatus status = libstatsd::PublishStatus::Success;
  std::variant<std::vector<libstatsd::Report>, libstatsd::Error> reports;
};
static FakeStatsd gStatsd;

// Replaces the client library's two classes, so that statsd can refuse and fail.
namespace libstatsd {

bool StatsdConfiguration::addEventAtomId(int32_t atomId) {
  return atomId != gStatsd.refusedAtom;
}

void StatsdConfiguration::addAllowedLogSource(const std::string&) {}

PublishStatus StatsdConfiguration::publishConfigurationBlocked(int32_t configId, int32_t uid) {
  gStatsd.asked += "publish " + std::to_string(configId) + " " + std::to_string(uid);
  return gStatsd.status;
}

void StatsdCollection::addConfiguration(int32_t configId, int32_t uid) {
  gStatsd.asked += ", collect " + std::to_string(configId) + " " + std::to_string(uid);
}

std::variant<std::vector<Report>, Error> StatsdCollection::fetchReportsBlocked() {
  return gStatsd.reports;
}

}  // namespace libstatsd

namespace Torv::OS::Diagnostics {
namespace {

using libstatsd::PublishStatus;
using testing::ElementsAre;

void expectRefusal(StatsManagerBuilder builder, const std::string& message) {
  const test::LogCapture log;
  EXPECT_EQ(std::move(builder).build(), nullptr);
  const test::LogLine line{ANDROID_LOG_ERROR, "libdiagnostics-stats", message};
  EXPECT_EQ(log.lines(), std::vector{line}) << message;
}

TEST(StatsManagerTest, tellsWhatIsMissingBeforeItPublishesAndThenWhyStatsdRefused) {
  gStatsd = {};
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
  EXPECT_EQ(gStatsd.asked, "");

  gStatsd.refusedAtom = 0;
  builder.setUid(1);
  const std::pair<PublishStatus, std::string> refusals[] = {
      {PublishStatus::FailedToReachService, "FailedToReachService\n"},
      {PublishStatus::ConfigurationFailure, "ConfigurationFailure\n"},
      {static_cast<PublishStatus>(42), "an unknown error\n"}};
  for (const auto& [status, reason] : refusals) {
    gStatsd.status = status;
    expectRefusal(builder, "Failed to publish configuration to statsd due to " + reason);
  }
}

libstatsd::AtomReport atom(int32_t id, int64_t timestamp, const std::string& payload) {
  libstatsd::AtomReport report;
  report.elapsedTimestampNs = timestamp;
  report.atom.mutable_unknown_fields()->AddLengthDelimited(id, payload);
  return report;
}

TEST(StatsManagerTest, bringsNothingIfAFetchFailsAndGoesOn) {
  gStatsd = {};
  StatsManagerBuilder builder;
  builder.addAtomId(1).addAllowedLogSource("AID_APP").setConfigId(3);
  const std::unique_ptr<StatsManager> manager = std::move(builder).build();
  ASSERT_NE(manager, nullptr);
  EXPECT_EQ(gStatsd.asked, "publish 3 1000, collect 3 1000");  // the default uid is the system's
  gStatsd.reports = libstatsd::Error{"gone"};
  EXPECT_TRUE(manager->fetchReports().empty());
  const libstatsd::AtomReport report = atom(kApplicationStateAtomId, 9, "\x08\x05");
  gStatsd.reports = std::vector<libstatsd::Report>{{report}, {}, {report}};
  EXPECT_EQ(manager->fetchReports().size(), 2U);
}

// As "<pid or namespace>/<key>=<value>@<timestamp>".
std::string textOf(const ApplicationState& state) {
  EXPECT_EQ(state.global, !state.nameSpace.empty());
  EXPECT_TRUE(!state.global || state.pid == 0);
  return (state.global ? state.nameSpace : std::to_string(state.pid)) + "/" + state.key + "=" + state.value +
         "@" + std::to_string(state.timestamp);
}

TEST(AtomDecoderTest, takesWhateverAnAtomMayHoldAndSkipsOnlyThoseItCannotRead) {
  const std::string big(4096, 'x');
  constexpr int32_t kState = kApplicationStateAtomId;
  constexpr int32_t kSession = kTelemetrySessionAtomId;
  const test::LogCapture log;
  std::vector<std::string> states;
  for (const ApplicationState& state :
       decodeReports({{atom(kState, 7, "\x08\xd2\x09\x12\x06screen\x1a\x04home"),
                       atom(kState, -5, "\x08\xfb\xff\xff\xff\xff\xff\xff\xff\xff\x01\x12\x03\xff\xc0\x80"),
                       atom(kState, 2, "\x12\x09key"),
                       atom(kSession, 3, "\x0a\xff"),
                       atom(110011, 4, "\x08\x01"),
                       {}},
                      {atom(kState, INT64_MAX, "\x12\x80\x20" + big + "\x1a\x80\x20" + big),
                       atom(kState, 0, ""), atom(kState, 3, "\x1a\x01z"),  // a value alone
                       atom(kState, 4, "\x08\x06\x20\x01\x2a\x01?"),       // and fields 4 and 5
                       atom(kSession, 7, "\x0a\x03one\x12\x03two"), atom(kSession, 8, "")}})) {
    states.push_back(textOf(state));
  }
  EXPECT_THAT(states,
              ElementsAre("1234/screen=home@7", "-5/\xff\xc0\x80=@-5",
                          "0/" + big + "=" + big + "@9223372036854775807", "0/=@0", "0/=z@3", "6/=@4",
                          "telemetry/service_session_id=one@7", "telemetry/user_active_session_id=two@7",
                          "telemetry/service_session_id=@8", "telemetry/user_active_session_id=@8"));
  EXPECT_THAT(
      log.texts(ANDROID_LOG_ERROR),
      ElementsAre("extractStatesFromApplicationStateDataAtom: Failed to parse appStateData buffer into "
                  "diagnostics atom.",
                  "extractStatesFromTelemetryStateDataAtom: Failed to parse telemetry state data buffer "
                  "into atom.",
                  "Cannot parse atom 110011 as application state data",
                  "Cannot parse atom 0 as application state data"));
  EXPECT_EQ(log.lines().front().tag, "libdiagnostics-stats");
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
