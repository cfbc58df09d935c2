#pragma once

#include <memory>
#include <set>
#include <string>
#include <unordered_set>

#include "base/StringMap.h"
#include "configuration/OverridableConfiguration.h"
#include "systemstatecollector/SystemStateCollectorManager.h"

namespace Torv::OS::Diagnostics {

// Tells crash reporters which system produced a report: its build, the code review and the test run that the
// build belongs to and, if correlation is on, the last minute or two of pressure, CPU, GPU, memory and
// battery.
//
// Thread-safe. Keeps nothing between calls except the histories.
class SystemContextManager {
 public:
  // Returns the manager of the service, never null. The first call builds the process's configuration chain,
  // and ends the process if the configuration file cannot be loaded. The manager has histories if the
  // device-configuration flag for correlation is true at this moment and this machine has one of the sources.
  static std::unique_ptr<SystemContextManager> makeDefaultManager();

  // `configuration` must not be null. `collectorManager` may be null: then there are no histories.
  SystemContextManager(std::shared_ptr<Torv::OverridableConfiguration> configuration,
                       std::unique_ptr<SystemStateCollectorManager> collectorManager);
  virtual ~SystemContextManager() = default;

  // Returns a map from context key (ContextKeys.h) or history name to value. Reads everything anew at every
  // call. The keys of the build's tags and fingerprint are always there, possibly with an empty value; the
  // others only if they have a value. A history never replaces a key. Waits for a poll of the collectors, as
  // SystemStateCollectorManager::dumpSystemStateHistory() describes.
  virtual Base::StringMap getSystemContext();

  // Start and stop the thread that samples once a second. Stopping waits for a sample that is under way. Both
  // do nothing if there are no histories; starting does nothing if the thread runs, stopping if it does not.
  virtual void startSystemStateCollectorThread();
  virtual void stopSystemStateCollectorThread();

  // Return the value of a system property, or "" if it is not set.
  virtual std::string getRawBuildTags();
  virtual std::string getRawBuildFingerprint();

  // Splits a comma-separated list of tags. Stores "name:value" in `values`; later colons belong to the value,
  // and the last of two equal names counts. Adds a token without a colon to `flags`. Drops an empty token and
  // one that begins with a colon. Keeps what both already hold. Always returns true.
  static bool parseBuildTags(std::string tags, std::unordered_set<std::string>& flags,
                             Base::StringMap& values);
  static bool parseBuildTags(std::string tags, std::set<std::string>& flags, Base::StringMap& values);

 private:
  void addHistories(Base::StringMap& context);

  std::shared_ptr<Torv::OverridableConfiguration> mConfiguration;
  std::unique_ptr<SystemStateCollectorManager> mCollectorManager;  // may be null
};

}  // namespace Torv::OS::Diagnostics
