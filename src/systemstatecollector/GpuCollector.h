#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "TextCollector.h"

namespace Torv::OS::Diagnostics {

// The GPU's utilisation, from the Adreno driver's file gpubusy_accum:
//   1000 10000
// Metric: "GpuUtilization_%".
//
// A value covers the time since the sample before. The oldest sample of a dump is compared with the newest of
// the dump before, or with zeroes in the first dump. Because of this memory, dumps of one collector must come
// one at a time; the manager's lock sees to that.
class GpuCollector : public TextCollector {
 public:
  // The two numbers of the file, both in microseconds since boot.
  struct GpuUtilStats {
    uint64_t busy = 0;
    uint64_t total = 0;
  };

  // Parses one line. A number that the line does not have is 0. Takes any bytes.
  static GpuUtilStats parseLine(std::string_view line);

  // Returns the busy percentage of the time between two readings, or nullopt if the total is the same in
  // both. A counter that went backwards wraps around, and the percentage is then far above 100.
  static std::optional<double> utilizationPercent(const GpuUtilStats& previous, const GpuUtilStats& now);

  // Opens /sys/class/kgsl/kgsl-3d0/gpubusy_accum. Returns null and logs an error if it cannot be opened.
  static std::unique_ptr<GpuCollector> init(SystemStateCollectorConfig config);
  // Takes over an open stream, or a source, of that file.
  GpuCollector(const SystemStateCollectorConfig& config, TextSource source);

 private:
  void extractMetrics(const RawMetric& sample, Json::Value& out) override;

  GpuUtilStats mPreviousStats;  // of the line evaluated last
};

}  // namespace Torv::OS::Diagnostics
