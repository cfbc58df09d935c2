#include "CpuUsageCollector.h"

#include <utility>

#include "TextScanner.h"

namespace Torv::OS::Diagnostics {
namespace {

constexpr SourceInfo kStat{6, "/proc/stat", "cpu_utilization_history", "Provides CPU utilization stats",
                           "Stream /proc/stat is bad"};
const Json::StaticString kUtilization("CpuUtilization_%");

// Guest time is part of user and nice, so it is not added again.
uint64_t totalOf(const CpuUsageCollector::CpuStats& stats) {
  return stats.user + stats.nice + stats.system + stats.idle + stats.iowait + stats.irq + stats.softirq +
         stats.steal;
}

}  // namespace

bool CpuUsageCollector::parseNext(std::string_view& text, CpuStats& stats) {
  std::string_view line;
  while (nextLine(text, line)) {
    if (nextWord(line) != "cpu") continue;
    stats = CpuStats{};
    for (uint64_t* column : {&stats.user, &stats.nice, &stats.system, &stats.idle, &stats.iowait, &stats.irq,
                             &stats.softirq, &stats.steal, &stats.guest, &stats.guestNice}) {
      if (!nextNumber(line, *column)) break;
    }
    return true;
  }
  return false;
}

std::optional<double> CpuUsageCollector::utilizationPercent(const CpuStats& previous, const CpuStats& now) {
  const uint64_t totalNow = totalOf(now);
  const uint64_t totalPrevious = totalOf(previous);
  if (totalNow <= totalPrevious) return std::nullopt;
  const uint64_t idleNow = now.idle + now.iowait;
  const uint64_t idlePrevious = previous.idle + previous.iowait;
  const uint64_t deltaIdle = idleNow < idlePrevious ? 0 : idleNow - idlePrevious;
  return (1.0 - static_cast<double>(deltaIdle) / static_cast<double>(totalNow - totalPrevious)) * 100.0;
}

void CpuUsageCollector::extractMetrics(const RawMetric& sample, Json::Value& out) {
  std::string_view text = sample.text;
  CpuStats stats;
  while (parseNext(text, stats)) {
    const auto percent = utilizationPercent(mPreviousStats, stats);
    out[kUtilization] = percent ? Json::Value(*percent) : Json::Value(0);
    mPreviousStats = stats;
  }
}

std::unique_ptr<CpuUsageCollector> CpuUsageCollector::init(SystemStateCollectorConfig config) {
  return initFrom<CpuUsageCollector>(kStat, config);
}

CpuUsageCollector::CpuUsageCollector(const SystemStateCollectorConfig& config, TextSource source)
    : TextCollector(config, kStat, std::move(source)) {}

}  // namespace Torv::OS::Diagnostics
