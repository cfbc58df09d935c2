#pragma once

#include <variant>
#include <vector>

#include <statsd/StatsdCollection.h>

#include "stats/ApplicationState.h"

namespace Torv::OS::Diagnostics {

// The source of a StatsManager's states. Tests supply their own.
class LibstatsdWrapper {
 public:
  virtual ~LibstatsdWrapper() = default;

  // Returns what was published since the last fetch, in order of arrival, or statsd's error. Every state is
  // returned once. May block. Must be thread-safe.
  virtual std::variant<std::vector<ApplicationState>, libstatsd::Error> fetchReports() = 0;
};

}  // namespace Torv::OS::Diagnostics
