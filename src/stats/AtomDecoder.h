// From the reports of statsd to observations.
#pragma once

#include <vector>

#include <statsd/StatsdCollection.h>

#include "stats/ApplicationState.h"

namespace Torv::OS::Diagnostics {

// The ids of the atoms that decodeReports() knows.
inline constexpr int32_t kApplicationStateAtomId = 110010;
inline constexpr int32_t kTelemetrySessionAtomId = 111983;

// The observations of all atoms, in their order: one of an application-state atom, two of a telemetry-session
// atom. An atom of another id, or whose payload does not parse, is logged and skipped.
std::vector<ApplicationState> decodeReports(std::vector<libstatsd::Report> reports);

}  // namespace Torv::OS::Diagnostics
