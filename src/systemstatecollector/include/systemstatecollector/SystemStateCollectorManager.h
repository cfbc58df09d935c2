#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "base/Mutex.h"
#include "os/PeriodicTask.h"
#include "systemstatecollector/PollStatistics.h"
#include "systemstatecollector/SystemStateCollector.h"

namespace Torv::OS::Diagnostics {

class ChargeFiles;

// Owns the collectors, samples them once a second on a thread of its own and hands out their histories. All
// operations are safe from any thread, except that only one thread may poll at a time. Polls and dumps shut
// each other out.
class SystemStateCollectorManager {
 public:
  // A manager of the standard collectors: every one whose source this machine has. Null where it has none.
  static std::unique_ptr<SystemStateCollectorManager> makeDefaultManager();
  // The same with the caller's own in the place of what the process keeps; both must outlive the manager.
  static std::unique_ptr<SystemStateCollectorManager> makeDefaultManager(PollStatistics& statistics,
                                                                         ChargeFiles& chargeFiles);

  // A manager without collectors.
  explicit SystemStateCollectorManager(PollStatistics& statistics);
  virtual ~SystemStateCollectorManager();
  SystemStateCollectorManager(const SystemStateCollectorManager&) = delete;
  SystemStateCollectorManager& operator=(const SystemStateCollectorManager&) = delete;

  // The first poll comes one second after the start. Starting twice and stopping twice do no harm; stopping
  // waits for a poll that runs.
  virtual void startCollectorThread();
  virtual void stopCollectorThread();

  // Every collector's history: its name and its report (see SystemStateCollector). Never null.
  virtual std::unique_ptr<std::unordered_map<std::string, std::string>> dumpSystemStateHistory()
      EXCLUDES(mCollectorsMutex);

  virtual size_t collectorCount() const EXCLUDES(mCollectorsMutex);

  // Samples the collectors whose turn it is. A failed sample and a poll that takes over 100 ms are logged.
  virtual void pollCollectors() EXCLUDES(mCollectorsMutex);

  // A collector whose id is taken already is dropped.
  virtual void addCollector(std::unique_ptr<SystemStateCollector> collector) EXCLUDES(mCollectorsMutex);

 private:
  void sampleCollectors() EXCLUDES(mCollectorsMutex);

  const uint64_t mPollIntervalMs = 1000;
  OS::PeriodicTask mPollingTask;
  std::unordered_map<uint8_t, std::unique_ptr<SystemStateCollector>> mCollectors GUARDED_BY(mCollectorsMutex);
  // Taken before a collector's own lock, and held over whole polls and dumps.
  mutable Base::Mutex mCollectorsMutex;
  PollStatistics& mStatistics;
};

}  // namespace Torv::OS::Diagnostics
