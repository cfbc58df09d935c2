#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace Torv::OS::Diagnostics {

// The aggregate line of /proc/stat, in clock ticks:
//   cpu  3018 0 2378 208602 247 0 38 7 0 0
// (proc(5)). Columns that an older kernel does not have are 0.
struct CpuStats {
  uint64_t user = 0;  // holds guest, as nice holds guestNice
  uint64_t nice = 0;
  uint64_t system = 0;
  uint64_t idle = 0;
  uint64_t iowait = 0;
  uint64_t irq = 0;
  uint64_t softirq = 0;
  uint64_t steal = 0;
  uint64_t guest = 0;
  uint64_t guestNice = 0;
};

// Takes the text up to the end of its next aggregate line; false where there is none.
bool nextCpuStats(std::string_view& text, CpuStats& stats);

// The share of the time between two readings that was not idle, in percent; empty where no time has passed or
// the counters went backwards. A reading of zeroes stands for the time of the boot.
std::optional<double> cpuUtilizationPercent(const CpuStats& previous, const CpuStats& now);

}  // namespace Torv::OS::Diagnostics
