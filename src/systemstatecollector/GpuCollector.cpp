#include "GpuCollector.h"

#include <utility>

#include <android/log.h>

#include "TextScanner.h"

namespace Torv::OS::Diagnostics {
namespace {

constexpr char kPath[] = "/sys/class/kgsl/kgsl-3d0/gpubusy_accum";
const Json::StaticString kUtilization("GpuUtilization_%");

}  // namespace

GpuUtilStats parseGpuLine(std::string_view line) {
  GpuUtilStats stats;
  if (nextNumber(line, stats.busy)) (void)nextNumber(line, stats.total);
  return stats;
}

std::optional<double> gpuUtilizationPercent(const GpuUtilStats& previous, const GpuUtilStats& now) {
  const uint64_t deltaTotal = now.total - previous.total;
  if (deltaTotal == 0) return std::nullopt;
  return static_cast<double>(now.busy - previous.busy) * 100.0 / static_cast<double>(deltaTotal);
}

std::unique_ptr<GpuCollector> GpuCollector::init(SystemStateCollectorConfig config) {
  auto source = TextSource::open(kPath);
  if (!source) return nullptr;
  return std::make_unique<GpuCollector>(config, std::move(*source));
}

GpuCollector::GpuCollector(const SystemStateCollectorConfig& config, TextSource source)
    : TextCollector(config, std::move(source), Evaluate::OldestFirst) {}

uint8_t GpuCollector::getId() const {
  return 7;
}

std::string GpuCollector::getDescription() const {
  return "Provides GPU utilization stats";
}

std::string GpuCollector::historyName() const {
  return "gpu_utilization_history";
}

void GpuCollector::logBadStream() const {
  __android_log_print(ANDROID_LOG_ERROR, nullptr, "Stream %s is bad", kPath);
}

void GpuCollector::extractMetrics(const RawMetric& sample, Json::Value& out) {
  std::string_view text = sample.text;
  std::string_view line;
  while (nextLine(text, line)) {
    const GpuUtilStats stats = parseGpuLine(line);
    const auto percent = gpuUtilizationPercent(mPreviousStats, stats);
    out[kUtilization] = percent ? Json::Value(*percent) : Json::Value(0);
    mPreviousStats = stats;
  }
}

}  // namespace Torv::OS::Diagnostics
