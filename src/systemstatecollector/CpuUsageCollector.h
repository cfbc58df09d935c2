#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "CpuStat.h"
#include "TextCollector.h"
#include "TextSource.h"

namespace Torv::OS::Diagnostics {

// The utilisation of all processors together, from /proc/stat. A value covers the time since the sample
// before it. The first sample ever evaluated covers the time since boot; in a later dump the oldest one is
// set against the last of the dump before, which is usually the younger of the two, and then reads 0.
class CpuUsageCollector : public TextCollector {
 public:
  static std::unique_ptr<CpuUsageCollector> init(SystemStateCollectorConfig config);
  CpuUsageCollector(const SystemStateCollectorConfig& config, TextSource source);

  uint8_t getId() const override;
  std::string getDescription() const override;

 private:
  std::string historyName() const override;
  void logBadStream() const override;
  void extractMetrics(const RawMetric& sample, Json::Value& out) override;

  // Of the sample evaluated last. Only dumps touch it, and those come one at a time.
  CpuStats mPreviousStats;
};

}  // namespace Torv::OS::Diagnostics
