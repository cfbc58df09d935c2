#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include <android-base/unique_fd.h>

#include "SampledCollector.h"
#include "base/Mutex.h"

namespace Torv::OS::Diagnostics {

// The two files of the battery's charge, kept open. All battery collectors of a process share one pair.
// Thread-safe.
class ChargeFiles {
 public:
  // The process's own pair. It is never destroyed.
  static ChargeFiles& ofProcess();

  // Opens the charge counter, then the full charge, if they were not tried before. Returns false and logs an
  // error that names the first missing file unless both are open. A file that could not be opened is not
  // tried again.
  bool open() EXCLUDES(mMutex);

  // Reads both files and returns the charge as a share of the full charge: 1 is full, and more is possible.
  // Returns nullopt if a file is not open, cannot be read or is empty, or if the full charge is 0.
  std::optional<float> readRatio() EXCLUDES(mMutex);

  // Closes and forgets the file of the full charge, so that open() tries it again. The other stays open.
  void release() EXCLUDES(mMutex);

 private:
  struct Slot {
    bool tried = false;
    android::base::unique_fd file;
  };

  static bool openOnce(Slot& slot, const char* path);

  Base::Mutex mMutex;
  Slot mChargeCounter GUARDED_BY(mMutex);
  Slot mChargeFull GUARDED_BY(mMutex);
};

struct BatterySample {
  uint64_t timeMs = 0;    // milliseconds of the monotonic clock
  float chargeRatio = 0;  // 1 is full; more if the counter exceeds the full charge
};

// The battery's charge, from two files of sysfs that hold one number each, in microampere-hours:
//   3000000
// Metric: "BatteryCharge_%", which exceeds 100 if the counter exceeds the full charge.
//
// Unlike the text collectors, this one computes its value when it samples. If a reading fails, the sample
// repeats the value that its slot of the ring held before: the one taken a whole round earlier, or 0 in the
// first round. Dumps of one collector may run at the same time.
class BatteryCollector : public SampledCollector<BatterySample> {
 public:
  // Returns the number at the beginning of `text`, with the result of fscanf(file, "%ld"): 0 if there is no
  // number, the nearest 64-bit value if it is too large, and nullopt if scanf would return EOF, that is, if
  // `text` is empty or holds nothing but white space. Takes any bytes.
  static std::optional<int64_t> parseNumber(std::string_view text);

  // Opens the process's files. Returns null and logs an error if one of them cannot be opened.
  static std::unique_ptr<BatteryCollector> init(SystemStateCollectorConfig config);
  // The same with files of the caller's, which must outlive the collector.
  static std::unique_ptr<BatteryCollector> init(SystemStateCollectorConfig config, ChargeFiles& files);
  // `files` must be open and outlive the collector.
  BatteryCollector(const SystemStateCollectorConfig& config, ChargeFiles& files);
  // Closes the file of the full charge, even if other collectors use it.
  ~BatteryCollector() override;

  // Always returns true.
  bool collectSystemStateData() override EXCLUDES(mMutex);

 private:
  void extractMetrics(const RawMetric& sample, Json::Value& out) override;

  ChargeFiles& mFiles;
};

}  // namespace Torv::OS::Diagnostics
