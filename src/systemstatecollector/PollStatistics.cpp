#include "systemstatecollector/PollStatistics.h"

#include <algorithm>

namespace Torv::OS::Diagnostics {
namespace {

constexpr int64_t kNsPerMs = 1'000'000;
constexpr int64_t kTimeLimitMs = 100;

}  // namespace

PollStatistics& PollStatistics::ofProcess() {
  static PollStatistics statistics;
  return statistics;
}

std::optional<OverrunWarning> accountPoll(PollStatistics& statistics, int64_t elapsedNs) {
  const int64_t elapsedMs = elapsedNs / kNsPerMs;
  if (elapsedMs <= kTimeLimitMs) return std::nullopt;
  statistics.overrunMaxMs = std::max(statistics.overrunMaxMs, elapsedMs);
  return OverrunWarning{statistics.overrunMaxMs, elapsedMs / 10};
}

}  // namespace Torv::OS::Diagnostics
