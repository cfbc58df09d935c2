#pragma once

#include <cstdint>
#include <string>

#include "AtomStore.h"
#include "EventProcessor.h"

namespace libstatsd {

// When a report was made, and when the one before it was (or the configuration published).
struct ReportTimes {
  int64_t lastElapsedNs = 0;  // CLOCK_BOOTTIME
  int64_t elapsedNs = 0;
  int64_t lastWallNs = 0;
  int64_t wallNs = 0;
};

// The serialised ConfigMetricsReportList that statsd answers a fetch with: one report with one event metric
// over all atoms of the configuration, each atom in the form with fields 1 and 2 that API 32 writes. There is
// no uid map: a host has no packages.
std::string encodeReportList(ConfigKey key, const AtomStore& atoms, const ReportTimes& times);

// The StatsLogReport within it.
std::string encodeEventMetric(const AtomStore& atoms);

}  // namespace libstatsd
