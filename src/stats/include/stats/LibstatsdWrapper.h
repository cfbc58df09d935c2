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

  // Returns statsd's error, or what was published since the last fetch, in order of arrival. Every state is
  // returned once, so a caller that drops the result loses it for good. Blocks as long as statsd does. Must
  // be thread-safe.
  virtual std::variant<std::vector<ApplicationState>, libstatsd::Error> fetchReports() = 0;
};

}  // namespace Torv::OS::Diagnostics
