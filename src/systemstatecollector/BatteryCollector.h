#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ChargeFiles.h"
#include "base/Mutex.h"
#include "systemstatecollector/CircularBuffer.h"
#include "systemstatecollector/SystemStateCollector.h"

namespace Torv::OS::Diagnostics {

// The battery's charge, from the power supply class of sysfs. Where a reading fails, its sample repeats what
// its slot held before: the value of one round earlier, 0 in the first.
class BatteryCollector : public SystemStateCollector {
 public:
  struct RawMetric {
    uint64_t timeMs = 0;
    float chargeRatio = 0;  // 1 is full; may be more, the two files are not from one gauge
  };

  static std::unique_ptr<BatteryCollector> init(SystemStateCollectorConfig config, ChargeFiles& files);
  // `files` is open and outlives the collector.
  BatteryCollector(const SystemStateCollectorConfig& config, ChargeFiles& files);
  ~BatteryCollector() override;

  uint8_t getId() const override;
  std::string getDescription() const override;
  // Always true.
  bool collectSystemStateData() override EXCLUDES(mMutex);
  std::unique_ptr<History> dumpSystemStateHistory() override EXCLUDES(mMutex);

 private:
  ChargeFiles& mFiles;
  Base::Mutex mMutex;
  const std::unique_ptr<CircularBuffer<RawMetric>> mBuffer PT_GUARDED_BY(mMutex);
};

}  // namespace Torv::OS::Diagnostics
