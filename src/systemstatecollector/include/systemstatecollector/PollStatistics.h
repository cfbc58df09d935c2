// The accounting of polls: how many there were, and which took too long.
#pragma once

#include <cstdint>
#include <optional>

namespace Torv::OS::Diagnostics {

// Only the polling thread touches it, without a lock.
struct PollStatistics {
  uint64_t pollCount = 0;    // polls so far; a collector is sampled if its rate divides this number
  int64_t overrunMaxMs = 0;  // the longest poll over the time limit since start-up, in milliseconds

  // Returns the statistics that all managers of the process share.
  static PollStatistics& ofProcess();
};

// The numbers of the warning, in milliseconds.
struct OverrunWarning {
  int64_t maxMs;
  int64_t averageMs;
};

// Returns the warning about a poll that took `elapsedNs` nanoseconds, or nullopt if that is at most 100 whole
// milliseconds. `maxMs` is the longest such poll so far, this one included. `averageMs` is a tenth of this
// poll's duration, although the text of the warning calls it an average: readers of logs rely on both.
std::optional<OverrunWarning> accountPoll(PollStatistics& statistics, int64_t elapsedNs);

}  // namespace Torv::OS::Diagnostics
