#include "GpuCollector.h"

#include <utility>

#include "TextScanner.h"

namespace Torv::OS::Diagnostics {
namespace {

constexpr SourceInfo kGpuBusy{7, "/sys/class/kgsl/kgsl-3d0/gpubusy_accum", "gpu_utilization_history",
                              "Provides GPU utilization stats",
                              "Stream /sys/class/kgsl/kgsl-3d0/gpubusy_accum is bad"};
const Json::StaticString kUtilization("GpuUtilization_%");

}  // namespace

GpuCollector::GpuUtilStats GpuCollector::parseLine(std::string_view line) {
  GpuUtilStats stats;
  if (nextNumber(line, stats.busy)) (void)nextNumber(line, stats.total);
  return stats;
}

std::optional<double> GpuCollector::utilizationPercent(const GpuUtilStats& previous,
                                                       const GpuUtilStats& now) {
  const uint64_t deltaTotal = now.total - previous.total;
  if (deltaTotal == 0) return std::nullopt;
  return static_cast<double>(now.busy - previous.busy) * 100.0 / static_cast<double>(deltaTotal);
}

void GpuCollector::extractMetrics(const RawMetric& sample, Json::Value& out) {
  std::string_view text = sample.text;
  std::string_view line;
  while (nextLine(text, line)) {
    const GpuUtilStats stats = parseLine(line);
    const auto percent = utilizationPercent(mPreviousStats, stats);
    out[kUtilization] = percent ? Json::Value(*percent) : Json::Value(0);
    mPreviousStats = stats;
  }
}

std::unique_ptr<GpuCollector> GpuCollector::init(SystemStateCollectorConfig config) {
  return initFrom<GpuCollector>(kGpuBusy, config);
}

GpuCollector::GpuCollector(const SystemStateCollectorConfig& config, TextSource source)
    : TextCollector(config, kGpuBusy, std::move(source)) {}

}  // namespace Torv::OS::Diagnostics
