#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "TextCollector.h"

namespace Torv::OS::Diagnostics {

// The utilisation of all processors together, from the aggregate line of /proc/stat:
//   cpu  3018 0 2378 208602 247 0 38 7 0 0
// (proc(5)). Metric: "CpuUtilization_%".
//
// A value covers the time since the sample before. The first sample ever evaluated covers the time since
// boot. In a later dump the oldest sample is compared with the newest of the dump before. That one is usually
// the younger of the two, and the value is then the integer 0. Because of this memory, dumps of one collector
// must come one at a time; the manager's lock sees to that.
class CpuUsageCollector : public TextCollector {
 public:
  // The columns of the line, in clock ticks. Columns that an older kernel does not have are 0.
  struct CpuStats {
    uint64_t user = 0;  // includes guest, as nice includes guestNice
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

  // Removes the beginning of `text` up to the end of its next aggregate line and stores that line's columns
  // in `stats`. Returns false if no such line is left. Takes any bytes.
  static bool parseNext(std::string_view& text, CpuStats& stats);

  // Returns the percentage of the time between two readings that was not idle, or nullopt if the sum of the
  // columns has not grown. It is below 0 if idle and iowait have grown more than the sum. All counters are 0
  // at boot.
  static std::optional<double> utilizationPercent(const CpuStats& previous, const CpuStats& now);

  // Opens /proc/stat. Returns null and logs an error if it cannot be opened.
  static std::unique_ptr<CpuUsageCollector> init(SystemStateCollectorConfig config);
  // Takes over an open stream, or a source, of that file.
  CpuUsageCollector(const SystemStateCollectorConfig& config, TextSource source);

 private:
  void extractMetrics(const RawMetric& sample, Json::Value& out) override;

  CpuStats mPreviousStats;  // of the sample evaluated last
};

}  // namespace Torv::OS::Diagnostics
