#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include <sys/types.h>

#include "base/StringMap.h"
#include "storage/Limits.h"
#include "storage/State.h"

namespace Torv::OS::Diagnostics {

// The last known states of every process, and of the global namespaces, which belong to no process. It
// remembers when a process was found dead and forgets the process a time-to-live later. It never forgets a
// global namespace.
//
// Its memory is bounded (see BlackBoxLimits). When the states of all processes take too much, these pay, in
// this order, until enough is free:
//   1. Processes above their share are cut to it and keep their newest states: pids without a process first,
//      and among equals the largest first.
//   2. Pids without a process are forgotten, the one that came last first.
//   3. Processes are forgotten, the largest first.
// It follows that a process within its share loses nothing as long as no more than kProtectedProcesses
// processes have states. A pid has a process if there was one when its first state came or when somebody has
// to pay: so a process that has died keeps its protection until it is forgotten, and invented pids never get
// any. Counting the whole table instead of each process lets one process hold much while the others hold
// little.
//
// Timestamps are nanoseconds of CLOCK_BOOTTIME. Not thread-safe: the application state manager holds its lock
// around every call.
class BlackBox {
 public:
  using WallClock = std::function<int64_t()>;        // seconds since the Unix epoch
  using ProcessExists = std::function<bool(pid_t)>;  // also true for a zombie
  using ProcessStates = std::unordered_map<int, Base::StringMap>;
  using GlobalStates = std::unordered_map<std::string, Base::StringMap>;

  static int64_t unixTime();  // the WallClock of the system

  // By default every pid counts as one with a process.
  explicit BlackBox(
      WallClock wallClock = &unixTime, ProcessExists processExists = [](pid_t) { return true; },
      const BlackBoxLimits& limits = {});

  // Adds a value to the states of a process. A process that is marked dead takes new values and stays dead.
  // `timestamp` is in nanoseconds of CLOCK_BOOTTIME, here and in addGlobalState().
  void addProcessState(int32_t pid, const std::string& key, int64_t timestamp, const std::string& value);

  // Adds a value to the states of a namespace. If the key's newest value is newer than `timestamp`, its
  // values are dropped first, because the publisher's clock has started over.
  void addGlobalState(const std::string& nameSpace, const std::string& key, int64_t timestamp,
                      const std::string& value);

  // Notes the time of death of a process. Does nothing if the process is unknown or marked already.
  void markProcessAsDead(int32_t pid) const;

  // Returns the newest value of every key of one process, or nullopt if the pid is unknown. What does not fit
  // into `maxReplyBytes` is left out: keys whose newest value is oldest.
  std::optional<Base::StringMap> getAllForPid(int32_t pid, size_t maxReplyBytes = SIZE_MAX) const;

  // Returns the newest value of every key of every process, dead ones included. If this does not fit into
  // `maxReplyBytes`, the largest processes get an empty map and their pids are appended to `leftOut`. Sizes
  // are summed before anything is copied. `leftOut` may be null if nothing can be left out.
  ProcessStates getAllProcessStates(size_t maxReplyBytes = SIZE_MAX,
                                    std::vector<int>* leftOut = nullptr) const;

  // Returns, for each namespace, the newest value of every key with its age (see State::get).
  GlobalStates getAllGlobalStates() const;

  // Returns the processes that are not marked dead.
  std::vector<int> getAllLivePids() const;

  // Forgets the processes that were marked dead at least `ttlSeconds` ago.
  void cleanupAllWithTtl(int64_t ttlSeconds);

  // Returns how many bytes of memory the states of all processes take.
  size_t memoryBytes() const { return mProcessBytes; }

  // Returns a line that says how many states were dropped or refused since the last line, and of which
  // processes. Returns nullopt if there were none, or if the last line is less than kLossLogPeriodSeconds
  // old.
  std::optional<std::string> takeLossReport();

 private:
  struct Process {
    mutable State state;
    bool hasProcess = false;
    uint64_t arrival = 0;  // counts the pids
  };
  using Processes = std::unordered_map<int32_t, Process>;

  Process* admit(int32_t pid);
  bool forgetOneWithoutProcess();
  void makeRoom();
  std::vector<Processes::iterator> inOrderOfPayment();
  void forget(Processes::iterator process);
  void noteLoss(int32_t pid, size_t states);

  const WallClock mWallClock;
  const ProcessExists mProcessExists;
  const BlackBoxLimits mLimits;
  Processes mProcesses;
  std::unordered_map<std::string, State> mGlobalStates;
  size_t mProcessBytes = 0;  // State::bytes() of all processes
  size_t mGlobalBytes = 0;
  uint64_t mArrivals = 0;

  std::unordered_map<int32_t, size_t> mLosses;  // states lost since the last report
  size_t mOtherLosses = 0;                      // of processes beyond kMaxCountedProcesses, and of namespaces
  std::optional<int64_t> mLastReport;           // by mWallClock
};

}  // namespace Torv::OS::Diagnostics
