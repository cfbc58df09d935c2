// From the reports of statsd to application states.
#pragma once

#include <cstdint>
#include <vector>

#include <statsd/StatsdCollection.h>

#include "stats/ApplicationState.h"

namespace Torv::OS::Diagnostics {

inline constexpr char kStatsTag[] = "libdiagnostics-stats";  // of every log line of the feed

// The ids of the atoms that decodeReports() knows.
inline constexpr int32_t kApplicationStateAtomId = 110010;
inline constexpr int32_t kTelemetrySessionAtomId = 111983;

// Returns the states of all atoms, in the order of the atoms: one for an application-state atom, two for a
// telemetry-session atom. An atom with another id or with a payload that does not parse is logged and
// skipped. Takes the reports over to free each atom as soon as it is decoded.
std::vector<ApplicationState> decodeReports(std::vector<libstatsd::Report> reports);

}  // namespace Torv::OS::Diagnostics
