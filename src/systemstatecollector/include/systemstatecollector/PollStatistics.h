// The accounting of polls: how many there were, and which took too long.
#pragma once

#include <cstdint>
#include <optional>

namespace Torv::OS::Diagnostics {

// Written by the one thread that polls, without a lock.
struct PollStatistics {
  uint64_t pollCount = 0;      // polls so far; decides whose turn it is
  uint64_t overrunCount = 0;   // polls over the time limit since the last warning
  int64_t overrunTotalMs = 0;  // what these took
  int64_t overrunMaxMs = 0;    // the longest since start-up; never reset

  // The statistics of the process, shared by all its managers.
  static PollStatistics& ofProcess();
};

struct OverrunWarning {
  int64_t maxMs;
  int64_t averageMs;
};

// Accounts for a poll that took `elapsedNs`. A value means that a warning is due. The average divides by ten
// whatever was counted, and every poll over the limit warns: both are known to readers of the warning.
std::optional<OverrunWarning> accountPoll(PollStatistics& statistics, int64_t elapsedNs);

}  // namespace Torv::OS::Diagnostics
