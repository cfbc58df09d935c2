#include "AtomDecoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/LogCapture.h"
#include "vendor/velmor/packages/services/StatsCollector/src/pelluxatoms.pb.h"
#include "vendor/velmor/services/telemetry/shared/statsd/TelemetrySessionInfo.pb.h"

namespace Torv::OS::Diagnostics {
namespace {

using testing::ElementsAre;
using vendor::pellux::hardware::PelluxAtoms::ApplicationStateData;

libstatsd::AtomReport atom(int32_t id, int64_t timestamp, const std::string& payload) {
  libstatsd::AtomReport report;
  report.elapsedTimestampNs = timestamp;
  report.atom.mutable_unknown_fields()->AddLengthDelimited(id, payload);
  return report;
}

std::string payloadOf(int32_t pid, const std::string& key, const std::string& value) {
  ApplicationStateData data;
  data.set_pid(pid);
  data.set_key(key);
  data.set_value(value);
  return data.SerializeAsString();
}

// Each state as "<pid or namespace>/<key>=<value>@<timestamp>".
std::vector<std::string> decoded(const std::vector<libstatsd::Report>& reports) {
  std::vector<std::string> texts;
  for (const ApplicationState& state : decodeReports(reports)) {
    EXPECT_EQ(state.global, !state.nameSpace.empty());
    EXPECT_TRUE(!state.global || state.pid == 0);
    texts.push_back((state.global ? state.nameSpace : std::to_string(state.pid)) + "/" + state.key + "=" +
                    state.value + "@" + std::to_string(state.timestamp));
  }
  return texts;
}

// The same of one application-state atom.
std::vector<std::string> decoded(const std::string& payload, int64_t timestamp = 1) {
  return decoded({{atom(kApplicationStateAtomId, timestamp, payload)}});
}

TEST(AtomDecoder, TakesWhateverAnAtomOfThisKindMayHold) {
  const std::string big(4096, 'x');
  const std::string notUtf8 = "\xff\xc0\x80";
  EXPECT_THAT(decoded(payloadOf(1234, "screen", "home"), 7), ElementsAre("1234/screen=home@7"));
  EXPECT_THAT(decoded(payloadOf(0, "", "")), ElementsAre("0/=@1"));
  EXPECT_THAT(decoded(payloadOf(INT32_MAX, big, big)), ElementsAre("2147483647/" + big + "=" + big + "@1"));
  EXPECT_THAT(decoded(payloadOf(1, notUtf8, notUtf8)), ElementsAre("1/" + notUtf8 + "=" + notUtf8 + "@1"));
  for (const int64_t timestamp : {INT64_C(0), INT64_C(-5), INT64_MAX}) {
    EXPECT_THAT(decoded(payloadOf(1, "k", "v"), timestamp),
                ElementsAre("1/k=v@" + std::to_string(timestamp)));
  }
}

TEST(AtomDecoder, TakesMissingFieldsAsEmptyWhateverCameBefore) {
  const std::string big(100, 'v');
  EXPECT_THAT(
      decoded(
          {{atom(kApplicationStateAtomId, 1, payloadOf(5, "key", big)), atom(kApplicationStateAtomId, 2, ""),
            atom(kApplicationStateAtomId, 3, "\x1a\x01z"),                     // a value alone
            atom(kApplicationStateAtomId, 4, "\x08\x06\x20\x01\x2a\x01?")}}),  // and fields 4 and 5
      ElementsAre("5/key=" + big + "@1", "0/=@2", "0/=z@3", "6/=@4"));
}

TEST(AtomDecoder, MakesTwoGlobalsOfATelemetrySession) {
  EXPECT_THAT(decoded({{atom(kTelemetrySessionAtomId, 7, "\x0a\x03one\x12\x03two"),
                        atom(kTelemetrySessionAtomId, 8, "")}}),
              ElementsAre("telemetry/service_session_id=one@7", "telemetry/user_active_session_id=two@7",
                          "telemetry/service_session_id=@8", "telemetry/user_active_session_id=@8"));
}

TEST(AtomDecoder, SkipsAnAtomItCannotReadAndNoOther) {
  test::LogCapture log;
  libstatsd::AtomReport empty;
  const std::vector<std::string> states = decoded({
      {atom(kApplicationStateAtomId, 1, payloadOf(1, "a", "1")),
       atom(kApplicationStateAtomId, 2, "\x12\x09key"), atom(kTelemetrySessionAtomId, 3, "\x0a\xff"),
       atom(110011, 4, payloadOf(1, "b", "2")), empty},
      {atom(kApplicationStateAtomId, 5, payloadOf(1, "c", "3"))},
  });
  EXPECT_THAT(states, ElementsAre("1/a=1@1", "1/c=3@5"));
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
