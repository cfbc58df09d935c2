// The accounting of polls: how many there were, and which took too long.
#pragma once

#include <cstdint>
#include <optional>

namespace Torv::OS::Diagnostics {

// Only the polling thread touches it, without a lock.
struct PollStatistics {
  uint64_t pollCount = 0;      // polls so far; a collector's rate divides the number of its polls
  uint64_t overrunCount = 0;   // polls over the time limit since the last warning
  int64_t overrunTotalMs = 0;  // the sum of their durations, in milliseconds
  int64_t overrunMaxMs = 0;    // the longest poll over the limit since start-up, in milliseconds

  // Returns the statistics that all managers of the process share.
  static PollStatistics& ofProcess();
};

// The numbers of the warning, in milliseconds.
struct OverrunWarning {
  int64_t maxMs;
  int64_t averageMs;
};

// Adds a poll of `elapsedNs` nanoseconds to the overruns of `statistics` if it took more than 100 whole
// milliseconds. Returns the warning that is due, or nullopt. Every poll over the limit is warned of, and the
// average is a tenth of that poll's own duration: the format of the warning is fixed, and so are its numbers.
std::optional<OverrunWarning> accountPoll(PollStatistics& statistics, int64_t elapsedNs);

}  // namespace Torv::OS::Diagnostics
