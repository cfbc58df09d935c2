#include "CpuStat.h"

#include "TextScanner.h"

namespace Torv::OS::Diagnostics {
namespace {

// Every line of /proc/stat but a few begins with another letter, which is all that has to be seen of it.
bool mayBeAggregate(std::string_view line) {
  return !line.empty() && (line.front() == 'c' || isSpace(line.front()));
}

// Guest time is already in user and nice, so it is not counted again.
uint64_t totalOf(const CpuStats& stats) {
  return stats.user + stats.nice + stats.system + stats.idle + stats.iowait + stats.irq + stats.softirq +
         stats.steal;
}

}  // namespace

bool nextCpuStats(std::string_view& text, CpuStats& stats) {
  std::string_view line;
  while (nextLine(text, line)) {
    if (!mayBeAggregate(line) || nextWord(line) != "cpu") continue;
    stats = CpuStats{};
    for (uint64_t* column : {&stats.user, &stats.nice, &stats.system, &stats.idle, &stats.iowait, &stats.irq,
                             &stats.softirq, &stats.steal, &stats.guest, &stats.guestNice}) {
      if (!nextNumber(line, *column)) break;
    }
    return true;
  }
  return false;
}

std::optional<double> cpuUtilizationPercent(const CpuStats& previous, const CpuStats& now) {
  const uint64_t totalNow = totalOf(now);
  const uint64_t totalPrevious = totalOf(previous);
  if (totalNow <= totalPrevious) return std::nullopt;
  const uint64_t idleNow = now.idle + now.iowait;
  const uint64_t idlePrevious = previous.idle + previous.iowait;
  const uint64_t deltaIdle = idleNow < idlePrevious ? 0 : idleNow - idlePrevious;
  return (1.0 - static_cast<double>(deltaIdle) / static_cast<double>(totalNow - totalPrevious)) * 100.0;
}

}  // namespace Torv::OS::Diagnostics
