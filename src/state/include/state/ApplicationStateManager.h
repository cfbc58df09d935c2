#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include <sys/types.h>

#include "base/Mutex.h"
#include "os/PeriodicTask.h"
#include "stats/StatsManager.h"
#include "storage/BlackBox.h"

namespace Torv::OS::Diagnostics {

// The front of the application states: pulls what statsd holds into the black box at the start of every
// query, finds out which processes have died, and forgets them a time-to-live later from a thread of its own.
//
// Thread-safe.
class ApplicationStateManager {
 public:
  // Whether a process of that pid exists, a zombie included, whoever owns it.
  using ProcessExists = std::function<bool(pid_t pid)>;
  static bool processExists(pid_t pid);

  // The manager of the service: fed by statsd, with a time-to-live of 60 s. Empty where the feed cannot be
  // made; the log says why.
  static std::unique_ptr<ApplicationStateManager> makeDefaultManager();

  ApplicationStateManager(std::unique_ptr<BlackBox> blackBox, std::unique_ptr<StatsManager> statsManager,
                          int64_t ttlSeconds,
                          ProcessExists processExists = &ApplicationStateManager::processExists);
  virtual ~ApplicationStateManager() = default;

  // These three see all that had been published before the call. For their results see BlackBox.
  std::optional<std::unordered_map<std::string, std::string>> getApplicationStateForPid(int32_t pid);
  std::unordered_map<int, std::unordered_map<std::string, std::string>> getAllProcessStates();
  std::unordered_map<std::string, std::unordered_map<std::string, std::string>> getAllGlobalStates();

  // cleanup() every 30 s from now, on a thread of its own; stopping waits for that thread's end. Either does
  // nothing where there is nothing to do.
  void startCleanupPeriodicTask();
  void stopCleanupPeriodicTask();

  // Pulls what statsd holds into the black box.
  void updateApplicationStateManager();

  // Marks the processes as dead that no longer exist.
  void checkForDeadProcesses();

  // Does that, and forgets the processes whose time-to-live has run out. Fetches nothing.
  void cleanup();

 private:
  // Held over a fetch and the applying of what it brought: statsd hands every atom out once, so a query must
  // not answer, nor a later batch be applied, while another thread still carries an earlier one. Taken before
  // mLock, and the only lock that is held over I/O.
  Base::Mutex mUpdateMutex;
  // Recursive because cleanup() holds it over checkForDeadProcesses().
  Base::RecursiveMutex mLock;
  const std::unique_ptr<BlackBox> mBlackBox PT_GUARDED_BY(mLock);
  const std::unique_ptr<StatsManager> mStatsManager PT_GUARDED_BY(mUpdateMutex);
  const int64_t mTtlSeconds;
  const ProcessExists mProcessExists;
  PeriodicTask mCleanupTask;  // destroyed first: its thread uses all of the above
};

}  // namespace Torv::OS::Diagnostics
