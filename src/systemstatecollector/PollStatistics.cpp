#include "systemstatecollector/PollStatistics.h"

#include <algorithm>

namespace Torv::OS::Diagnostics {
namespace {

constexpr int64_t kNsPerMs = 1'000'000;
constexpr int64_t kTimeLimitMs = 100;
constexpr uint64_t kOverrunsPerWarning = 10;

}  // namespace

PollStatistics& PollStatistics::ofProcess() {
  static PollStatistics statistics;
  return statistics;
}

std::optional<OverrunWarning> accountPoll(PollStatistics& statistics, int64_t elapsedNs) {
  const int64_t elapsedMs = elapsedNs / kNsPerMs;
  if (elapsedMs <= kTimeLimitMs) return std::nullopt;
  const uint64_t previous = statistics.overrunCount++;
  statistics.overrunTotalMs += elapsedMs;
  statistics.overrunMaxMs = std::max(statistics.overrunMaxMs, elapsedMs);
  if (previous % kOverrunsPerWarning != 0) return std::nullopt;
  const OverrunWarning warning{statistics.overrunMaxMs,
                               statistics.overrunTotalMs / static_cast<int64_t>(kOverrunsPerWarning)};
  statistics.overrunCount = 0;
  statistics.overrunTotalMs = 0;
  return warning;
}

}  // namespace Torv::OS::Diagnostics
