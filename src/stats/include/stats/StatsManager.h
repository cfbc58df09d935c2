#pragma once

#include <memory>
#include <vector>

#include "stats/ApplicationState.h"
#include "stats/LibstatsdWrapper.h"

namespace Torv::OS::Diagnostics {

// The statsd feed: what applications publish, as observations for the black box.
class StatsManager {
 public:
  // Publishes the service's configuration to statsd under the process's uid. Empty where that fails, as for
  // root; the log says why.
  static std::unique_ptr<StatsManager> makeDefaultManager();

  explicit StatsManager(std::unique_ptr<LibstatsdWrapper> wrapper);

  // What was published since the last fetch, in order of arrival; empty where statsd reports an error. Blocks
  // on statsd; thread-safe where the wrapper is.
  std::vector<ApplicationState> fetchReports();

 private:
  std::unique_ptr<LibstatsdWrapper> mWrapper;
};

}  // namespace Torv::OS::Diagnostics
