#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>

#include "base/StringMap.h"
#include "os/PeriodicTask.h"
#include "systemstatecollector/CollectorsMutex.h"
#include "systemstatecollector/PollStatistics.h"
#include "systemstatecollector/SystemStateCollector.h"

namespace Torv::OS::Diagnostics {

class ChargeFiles;

// Owns the collectors, samples them once a second on a thread of its own, and renders their histories on
// demand. A poll and a dump never run at the same time, nor do two dumps.
//
// All operations are safe from any thread, but only one thread may poll at a time.
class SystemStateCollectorManager {
 public:
  // Returns a manager of the standard collectors: those whose source this machine has. A missing one is
  // logged. Returns null if there is none.
  static std::unique_ptr<SystemStateCollectorManager> makeDefaultManager();
  // The same with the caller's objects instead of the process's. Both must outlive the manager.
  static std::unique_ptr<SystemStateCollectorManager> makeDefaultManager(PollStatistics& statistics,
                                                                         ChargeFiles& chargeFiles);

  // A manager without collectors, which counts its polls in the process's statistics.
  SystemStateCollectorManager();
  // The same with the caller's statistics, which must outlive the manager.
  explicit SystemStateCollectorManager(PollStatistics& statistics,
                                       const CollectorsMutex::Patience& patience = {});
  // Stops the thread. Waits for a poll that is under way.
  virtual ~SystemStateCollectorManager();
  SystemStateCollectorManager(const SystemStateCollectorManager&) = delete;
  SystemStateCollectorManager& operator=(const SystemStateCollectorManager&) = delete;

  // Starts the polling thread; the first poll comes one second later. Does nothing if it runs.
  virtual void startCollectorThread();
  // Ends the polling thread and waits for a poll that is under way. Does nothing if it does not run.
  virtual void stopCollectorThread();

  // Returns the history of every collector: from its name to its report (SystemStateCollector describes it).
  // Never null. Waits for a poll or dump that is under way, but not for a driver that hangs: the map is then
  // empty. At most two callers wait for such a driver, until it has hung for two seconds; the others wait
  // half a second at most, or not at all if it has hung that long. The first empty map while a driver hangs
  // is logged.
  virtual std::unique_ptr<Base::StringMap> dumpSystemStateHistory() EXCLUDES(mCollectorsMutex);

  // Returns the number of collectors. Waits for a poll or dump that is under way.
  virtual size_t collectorCount() const EXCLUDES(mCollectorsMutex);

  // Samples the collectors whose turn it is. Logs each sample that fails, and a poll of over 100 ms.
  virtual void pollCollectors() EXCLUDES(mCollectorsMutex);

  // Adds a collector, or destroys it if there is one of the same id. Waits for a poll or dump that is under
  // way.
  virtual void addCollector(std::unique_ptr<SystemStateCollector> collector) EXCLUDES(mCollectorsMutex);

 private:
  void sampleCollectors() EXCLUDES(mCollectorsMutex);
  void noteDumpWithoutHistories();

  const uint64_t mPollIntervalMs = 1000;
  OS::PeriodicTask mPollingTask;
  std::unordered_map<uint8_t, std::unique_ptr<SystemStateCollector>> mCollectors GUARDED_BY(mCollectorsMutex);
  // Taken before a collector's own lock, and held over whole polls and dumps.
  mutable CollectorsMutex mCollectorsMutex;
  PollStatistics& mStatistics;
  std::atomic<int> mSampledId{0};          // the collector that takes a sample now, or took the last one
  std::atomic<uint64_t> mDumpsWithout{0};  // dumps without histories since the last poll ended
};

}  // namespace Torv::OS::Diagnostics
