// Client library of statsd: what a process wants to be told of.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace libstatsd {

// What statsd answers to a configuration.
enum class PublishStatus : int32_t {
  Success = 0,
  FailedToReachService = 1,  // statsd cannot start; the log says why
  ConfigurationFailure = 2,  // no atom id, no log source, more than 150 of them, or another key (see below)
  Unknown = 3,
};

// Collects a configuration of pushed atoms and publishes it. Not thread-safe.
class StatsdConfiguration {
 public:
  // Adds an atom to collect. Returns false if no event metric can be made of the id: it is not positive, it
  // is 2^29 or more, or it was added already.
  [[nodiscard]] bool addEventAtomId(int32_t atomId);

  // Adds users whose atoms to take: a name with a fixed uid (AID_SYSTEM), AID_APP, or a package name. A name
  // that means nobody on this machine is accepted and has no effect.
  void addAllowedLogSource(const std::string& source);

  // Hands the configuration to statsd under the key (uid, configId) and waits for its answer. From Success
  // on, atoms of the allowed sources are kept for StatsdCollection. On a host this starts the statsd of the
  // current runtime directory in this process; FailedToReachService means that another process has one there,
  // or that a socket cannot be made. A host's statsd keeps one configuration: under the same key a new one
  // replaces its ids and sources, and the atoms kept already stay; another key is refused.
  [[nodiscard]] PublishStatus publishConfigurationBlocked(int32_t configId, int32_t uid);

 private:
  std::vector<int32_t> mAtomIds;
  std::vector<std::string> mAllowedLogSources;
};

}  // namespace libstatsd
