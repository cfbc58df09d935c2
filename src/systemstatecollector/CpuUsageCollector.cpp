#include "CpuUsageCollector.h"

#include <string_view>
#include <utility>

#include <android/log.h>

namespace Torv::OS::Diagnostics {
namespace {

const Json::StaticString kUtilization("CpuUtilization_%");

}  // namespace

std::unique_ptr<CpuUsageCollector> CpuUsageCollector::init(SystemStateCollectorConfig config) {
  auto source = TextSource::open("/proc/stat");
  if (!source) return nullptr;
  return std::make_unique<CpuUsageCollector>(config, std::move(*source));
}

CpuUsageCollector::CpuUsageCollector(const SystemStateCollectorConfig& config, TextSource source)
    : TextCollector(config, std::move(source), Evaluate::OldestFirst) {}

uint8_t CpuUsageCollector::getId() const {
  return 6;
}

std::string CpuUsageCollector::getDescription() const {
  return "Provides CPU utilization stats";
}

std::string CpuUsageCollector::historyName() const {
  return "cpu_utilization_history";
}

void CpuUsageCollector::logBadStream() const {
  __android_log_print(ANDROID_LOG_ERROR, nullptr, "Stream /proc/stat is bad");
}

void CpuUsageCollector::extractMetrics(const RawMetric& sample, Json::Value& out) {
  std::string_view text = sample.text;
  CpuStats stats;
  while (nextCpuStats(text, stats)) {
    const auto percent = cpuUtilizationPercent(mPreviousStats, stats);
    out[kUtilization] = percent ? Json::Value(*percent) : Json::Value(0);
    mPreviousStats = stats;
  }
}

}  // namespace Torv::OS::Diagnostics
