#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "configuration/OverridableConfiguration.h"
#include "systemstatecollector/SystemStateCollectorManager.h"

namespace Torv::OS::Diagnostics {

// Tells crash reporters which system produced a report: its build, the code review and test run the build
// belongs to, and, with correlation on, the last minute or two of pressure, CPU, GPU, memory and battery.
//
// Thread-safe; keeps nothing between calls but the histories.
class SystemContextManager {
 public:
  // The manager of the service. Builds the process's configuration chain at the first call, which ends the
  // process where the configuration file cannot be loaded. Collects histories where the device-configuration
  // flag for correlation is true at this moment. Never empty.
  static std::unique_ptr<SystemContextManager> makeDefaultManager();

  // `collectorManager` may be empty: then there are no histories.
  SystemContextManager(std::shared_ptr<Torv::OverridableConfiguration> configuration,
                       std::unique_ptr<SystemStateCollectorManager> collectorManager);
  virtual ~SystemContextManager() = default;

  // Context key (see ContextKeys.h) or history name to value. Read anew at every call. The build's tags and
  // fingerprint are always there, if empty; the others only where they are known.
  virtual std::unordered_map<std::string, std::string> getSystemContext();

  // The once-a-second sampling; nothing happens without histories, or where it is so already.
  virtual void startSystemStateCollectorThread();
  virtual void stopSystemStateCollectorThread();

  // Empty where the property is not set.
  virtual std::string getRawBuildTags();
  virtual std::string getRawBuildFingerprint();

  // Takes a comma-separated list of tags apart: "name:value" goes to `values`, the last of a name winning and
  // the value keeping further colons; a token without a colon goes to `flags`; one that begins with a colon,
  // or is empty, is dropped. Both are added to. Always true.
  static bool parseBuildTags(std::string tags, std::unordered_set<std::string>& flags,
                             std::unordered_map<std::string, std::string>& values);

 private:
  void addHistories(std::unordered_map<std::string, std::string>& context);

  std::shared_ptr<Torv::OverridableConfiguration> mConfiguration;
  std::unique_ptr<SystemStateCollectorManager> mCollectorManager;  // may be empty
};

}  // namespace Torv::OS::Diagnostics
