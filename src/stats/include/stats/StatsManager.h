#pragma once

#include <memory>
#include <vector>

#include "stats/ApplicationState.h"
#include "stats/LibstatsdWrapper.h"

namespace Torv::OS::Diagnostics {

// The statsd feed: turns the atoms that applications publish into states for the black box.
class StatsManager {
 public:
  // Publishes the service's configuration to statsd under the process's uid. Returns an empty pointer and
  // logs why if that fails. It always fails for root.
  static std::unique_ptr<StatsManager> makeDefaultManager();

  // Takes the source over, which must not be null.
  explicit StatsManager(std::unique_ptr<LibstatsdWrapper> wrapper);

  // Returns what was published since the last fetch, in order of arrival, or an empty list if statsd reports
  // an error. Every state is returned once, so the caller must not drop any. Blocks on statsd. Thread-safe if
  // the source is.
  std::vector<ApplicationState> fetchReports();

 private:
  std::unique_ptr<LibstatsdWrapper> mWrapper;
};

}  // namespace Torv::OS::Diagnostics
