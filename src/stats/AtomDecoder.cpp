#include "AtomDecoder.h"

#include <cstdint>
#include <string_view>
#include <utility>

#include <android/log.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <osutils/Telemetry.h>

#include "vendor/velmor/packages/services/StatsCollector/src/pelluxatoms.pb.h"
#include "vendor/velmor/services/telemetry/shared/statsd/TelemetrySessionInfo.pb.h"

namespace Torv::OS::Diagnostics {
namespace {

using google::protobuf::io::ArrayInputStream;
using google::protobuf::io::CodedInputStream;
using pellux::telemetry::TelemetrySessionInfo;
using vendor::pellux::hardware::PelluxAtoms::ApplicationStateData;

static_assert(kApplicationStateAtomId == vendor::pellux::hardware::PelluxAtoms::APPLICATION_STATE_DATA);

constexpr char kTelemetryNamespace[] = "telemetry";

bool parse(std::string_view payload, google::protobuf::MessageLite& message) {
  ArrayInputStream bytes(payload.data(), static_cast<int>(payload.size()));
  CodedInputStream stream(&bytes);
  return message.ParseFromCodedStream(&stream);
}

// Decodes atoms one by one. The messages are members, so that they keep their memory from one atom to the
// next.
class Decoder {
 public:
  explicit Decoder(std::vector<ApplicationState>& states) : mStates(states) {}

  void decode(const libstatsd::AtomReport& report) {
    const Telemetry::ParsedAtom atom = Telemetry::parseAtom(report.atom);
    switch (atom.id) {
      case kApplicationStateAtomId:
        extractStatesFromApplicationStateDataAtom(atom.payload, report.elapsedTimestampNs);
        break;
      case kTelemetrySessionAtomId:
        extractStatesFromTelemetryStateDataAtom(atom.payload, report.elapsedTimestampNs);
        break;
      default:
        __android_log_print(ANDROID_LOG_ERROR, kStatsTag, "Cannot parse atom %d as application state data",
                            atom.id);
    }
  }

 private:
  void extractStatesFromApplicationStateDataAtom(std::string_view payload, int64_t timestamp) {
    if (!parse(payload, mApplicationState)) {
      __android_log_print(ANDROID_LOG_ERROR, kStatsTag,
                          "%s: Failed to parse appStateData buffer into diagnostics atom.", __func__);
      return;
    }
    ApplicationState& state = mStates.emplace_back();
    state.pid = mApplicationState.pid();
    state.key = std::move(*mApplicationState.mutable_key());
    state.value = std::move(*mApplicationState.mutable_value());
    state.timestamp = timestamp;
  }

  void extractStatesFromTelemetryStateDataAtom(std::string_view payload, int64_t timestamp) {
    if (!parse(payload, mTelemetrySession)) {
      __android_log_print(ANDROID_LOG_ERROR, kStatsTag,
                          "%s: Failed to parse telemetry state data buffer into atom.", __func__);
      return;
    }
    mStates.push_back({true, kTelemetryNamespace, 0, "service_session_id",
                       std::move(*mTelemetrySession.mutable_service_session_id()), timestamp});
    mStates.push_back({true, kTelemetryNamespace, 0, "user_active_session_id",
                       std::move(*mTelemetrySession.mutable_user_active_session_id()), timestamp});
  }

  std::vector<ApplicationState>& mStates;
  ApplicationStateData mApplicationState;
  TelemetrySessionInfo mTelemetrySession;
};

}  // namespace

std::vector<ApplicationState> decodeReports(std::vector<libstatsd::Report> reports) {
  size_t atoms = 0;
  for (const libstatsd::Report& report : reports) atoms += report.size();
  std::vector<ApplicationState> states;
  states.reserve(atoms);
  Decoder decoder(states);
  for (libstatsd::Report& report : reports) {
    for (libstatsd::AtomReport& atom : report) {
      decoder.decode(atom);
      atom.atom = {};  // a full batch in both forms would take 20 MiB
    }
  }
  return states;
}

}  // namespace Torv::OS::Diagnostics
