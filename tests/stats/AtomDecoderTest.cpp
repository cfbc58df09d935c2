#include "AtomDecoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/LogCapture.h"
#include "vendor/velmor/packages/services/StatsCollector/src/pelluxatoms.pb.h"

namespace Torv::OS::Diagnostics {
namespace {

using testing::ElementsAre;

libstatsd::AtomReport atom(int32_t id, int64_t timestamp, const std::string& payload) {
  libstatsd::AtomReport report;
  report.elapsedTimestampNs = timestamp;
  report.atom.mutable_unknown_fields()->AddLengthDelimited(id, payload);
  return report;
}

libstatsd::AtomReport stateAtom(int64_t timestamp, int32_t pid, const std::string& key,
                                const std::string& value) {
  vendor::pellux::hardware::PelluxAtoms::ApplicationStateData data;
  data.set_pid(pid);
  data.set_key(key);
  data.set_value(value);
  return atom(kApplicationStateAtomId, timestamp, data.SerializeAsString());
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

TEST(AtomDecoder, TakesWhateverAnAtomMayHoldAndMissingFieldsAsEmpty) {
  const std::string big(4096, 'x');
  const std::string notUtf8 = "\xff\xc0\x80";
  EXPECT_THAT(
      decoded({{stateAtom(7, 1234, "screen", "home"), stateAtom(0, -5, "", ""),
                stateAtom(INT64_MAX, INT32_MAX, big, big), stateAtom(-5, 1, notUtf8, notUtf8),
                atom(kApplicationStateAtomId, 2, ""), stateAtom(1, 5, "key", big),
                atom(kApplicationStateAtomId, 3, "\x1a\x01z"),                  // a value alone
                atom(kApplicationStateAtomId, 4, "\x08\x06\x20\x01\x2a\x01?"),  // and fields 4 and 5
                atom(kTelemetrySessionAtomId, 7, "\x0a\x03one\x12\x03two"),
                atom(kTelemetrySessionAtomId, 8, "")}}),
      ElementsAre("1234/screen=home@7", "-5/=@0", "2147483647/" + big + "=" + big + "@9223372036854775807",
                  "1/" + notUtf8 + "=" + notUtf8 + "@-5", "0/=@2", "5/key=" + big + "@1", "0/=z@3", "6/=@4",
                  "telemetry/service_session_id=one@7", "telemetry/user_active_session_id=two@7",
                  "telemetry/service_session_id=@8", "telemetry/user_active_session_id=@8"));
}

TEST(AtomDecoder, SkipsAnAtomItCannotReadAndNoOther) {
  test::LogCapture log;
  EXPECT_THAT(decoded({{stateAtom(1, 1, "a", "1"),
                        atom(kApplicationStateAtomId, 2, "\x12\x09key"),
                        atom(kTelemetrySessionAtomId, 3, "\x0a\xff"),
                        atom(110011, 4, "\x08\x01"),
                        {}},
                       {stateAtom(5, 1, "c", "3")}}),
              ElementsAre("1/a=1@1", "1/c=3@5"));
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
