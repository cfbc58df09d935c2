#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <sys/types.h>

#include "base/Mutex.h"
#include "base/StringMap.h"
#include "os/PeriodicTask.h"
#include "stats/StatsManager.h"
#include "storage/BlackBox.h"

namespace Torv::OS::Diagnostics {

// The front of the application states. Every query first moves pending atoms from statsd into the black box.
// A thread of its own finds processes that have died, and forgets them a time-to-live later.
//
// Thread-safe.
class ApplicationStateManager {
 public:
  using ProcessExists = BlackBox::ProcessExists;

  // Returns true if the kernel knows a process of that pid: also for a zombie, and for a process that the
  // caller may not inspect.
  static bool processExists(pid_t pid);

  // Makes the service's manager: fed by statsd, with a time-to-live of 60 s. Returns an empty pointer and
  // logs why if the feed cannot be made.
  static std::unique_ptr<ApplicationStateManager> makeDefaultManager();

  // Takes over both. `ttlSeconds` is how long the states of a process stay after it was found dead.
  ApplicationStateManager(std::unique_ptr<BlackBox> blackBox, std::unique_ptr<StatsManager> statsManager,
                          int64_t ttlSeconds,
                          ProcessExists processExists = &ApplicationStateManager::processExists);
  virtual ~ApplicationStateManager() = default;

  // The queries. Each does updateApplicationStateManager() first, then returns what the function of the same
  // name in BlackBox returns (getApplicationStateForPid: getAllForPid).
  std::optional<Base::StringMap> getApplicationStateForPid(int32_t pid, size_t maxReplyBytes = SIZE_MAX);
  BlackBox::ProcessStates getAllProcessStates();
  BlackBox::GlobalStates getAllGlobalStates();

  // Returns what BlackBox::getAllProcessStates() returns, without an update.
  BlackBox::ProcessStates readProcessStates(size_t maxReplyBytes, std::vector<int>* leftOut);

  // Starts a thread that calls cleanup() every 30 s, for the first time in 30 s. Does nothing if it runs
  // already.
  void startCleanupPeriodicTask();
  // Stops that thread and waits for its end. Does nothing if it does not run.
  void stopCleanupPeriodicTask();

  // Moves what was published before the call from statsd into the black box. Blocks on statsd for two fetches
  // at most: a call that comes during a fetch shares the next one with all others that wait.
  void updateApplicationStateManager();

  // Marks processes that no longer exist as dead. Does not fetch.
  void checkForDeadProcesses();

  // Does that, and forgets processes whose time-to-live has run out.
  void cleanup();

 private:
  bool beginUpdate();
  void endUpdate();
  void apply(const std::vector<ApplicationState>& states);
  void logLosses();

  // An update is a fetch and the applying of its result. Only one runs at a time: statsd hands every atom out
  // once, so no query may answer, and no later batch may be applied, while a thread has atoms that it has not
  // applied yet. No lock is held during the fetch.
  Base::Mutex mUpdateMutex;
  Base::ConditionVariable mUpdateDone;
  bool mUpdating GUARDED_BY(mUpdateMutex) = false;
  uint64_t mUpdatesBegun GUARDED_BY(mUpdateMutex) = 0;
  uint64_t mUpdatesDone GUARDED_BY(mUpdateMutex) = 0;

  // Recursive because cleanup() holds it while it calls checkForDeadProcesses().
  Base::RecursiveMutex mLock;
  const std::unique_ptr<BlackBox> mBlackBox PT_GUARDED_BY(mLock);
  const std::unique_ptr<StatsManager> mStatsManager;  // used by the thread that does the update
  const int64_t mTtlSeconds;
  const ProcessExists mProcessExists;
  PeriodicTask mCleanupTask;  // destroyed first, because its thread uses all of the above
};

}  // namespace Torv::OS::Diagnostics
