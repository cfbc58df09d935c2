#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "TextCollector.h"
#include "TextSource.h"

namespace Torv::OS::Diagnostics {

// The Adreno driver's counters since boot, in microseconds, from gpubusy_accum:
//   1000 10000
struct GpuUtilStats {
  uint64_t busy = 0;
  uint64_t total = 0;
};

// What the line does not have is 0.
GpuUtilStats parseGpuLine(std::string_view line);

// The busy share of the time between two readings, in percent; empty where the total did not change. A
// counter that goes backwards wraps, and gives a very large share.
std::optional<double> gpuUtilizationPercent(const GpuUtilStats& previous, const GpuUtilStats& now);

// The GPU's utilisation. A value covers the time since the sample before it, as CpuUsageCollector's does.
class GpuCollector : public TextCollector {
 public:
  static std::unique_ptr<GpuCollector> init(SystemStateCollectorConfig config);
  GpuCollector(const SystemStateCollectorConfig& config, TextSource source);

  uint8_t getId() const override;
  std::string getDescription() const override;

 private:
  std::string historyName() const override;
  void logBadStream() const override;
  void extractMetrics(const RawMetric& sample, Json::Value& out) override;

  // Of the sample evaluated last. Only dumps touch it, and those come one at a time.
  GpuUtilStats mPreviousStats;
};

}  // namespace Torv::OS::Diagnostics
