// Client library of statsd: what a process wants to be told of.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace libstatsd {

enum class PublishStatus : int32_t {
  Success = 0,
  FailedToReachService = 1,
  ConfigurationFailure = 2,
  Unknown = 3,
};

// Collects a configuration of pushed atoms and publishes it. Not thread-safe.
class StatsdConfiguration {
 public:
  // False for an id that no event metric can be made of: not positive, or added already.
  [[nodiscard]] bool addEventAtomId(int32_t atomId);

  // Whose atoms to take: a name with a fixed uid (AID_SYSTEM), AID_APP, or a package name.
  void addAllowedLogSource(const std::string& source);

  // Hands the configuration to statsd under (uid, configId) and waits for its answer. From Success on, atoms
  // of the allowed sources are kept for StatsdCollection.
  [[nodiscard]] PublishStatus publishConfigurationBlocked(int32_t configId, int32_t uid);

 private:
  std::vector<int32_t> mAtomIds;
  std::vector<std::string> mAllowedLogSources;
};

}  // namespace libstatsd
