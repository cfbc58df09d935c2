#pragma once

#include <variant>
#include <vector>

#include <statsd/StatsdCollection.h>

#include "stats/ApplicationState.h"

namespace Torv::OS::Diagnostics {

// Where a StatsManager takes its reports from.
class LibstatsdWrapper {
 public:
  virtual ~LibstatsdWrapper() = default;

  // What was published since the last fetch, in order of arrival; every observation is handed out once. May
  // block, and may be called from several threads at once.
  virtual std::variant<std::vector<ApplicationState>, libstatsd::Error> fetchReports() = 0;
};

}  // namespace Torv::OS::Diagnostics
