#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <json/value.h>

#include "base/StringMap.h"
#include "systemstatecollector/SystemStateCollectorConfig.h"

namespace Torv::OS::Diagnostics {

// Watches one part of the system's state. It keeps the raw samples of the last minute or two and interprets
// them only in a dump, because sampling goes on as long as the device runs and dumps are rare.
//
// One thread takes samples. Dumps come from any thread, also while a sample is taken. Some collectors compare
// a sample with one of an earlier dump; their dumps must come one at a time, which the manager's lock
// ensures.
class SystemStateCollector {
 public:
  using History = Base::StringMap;

  explicit SystemStateCollector(const SystemStateCollectorConfig& config) : mConfig(config) {}
  virtual ~SystemStateCollector() = default;
  SystemStateCollector(const SystemStateCollector&) = delete;
  SystemStateCollector& operator=(const SystemStateCollector&) = delete;

  // The collector's number, unique among the collectors of a manager. It never changes.
  virtual uint8_t getId() const = 0;
  // The two values of the configuration; SystemStateCollectorConfig explains them.
  virtual uint32_t getSampleRate() const { return mConfig.getSampleRate(); }
  virtual uint32_t getMaxSamples() const { return mConfig.getMaxSamples(); }
  // A fixed sentence for people.
  virtual std::string getDescription() const = 0;

  // Takes one sample. Returns false, logs an error and stores nothing if the source can never be read again.
  // Blocks as long as the source's driver blocks.
  virtual bool collectSystemStateData() = 0;

  // Renders the samples held as one map entry from the history's name to its report, the JSON text
  //   {"version": "1.0", "report_time_ms": T, "time_series": [{"dt_ms": age, "v": {metric: value}}, ...]}
  // Times and ages are milliseconds of the monotonic clock. The newest sample comes first. Floating-point
  // values have at most two decimals. Clears nothing: the next dump reports the same samples again. A
  // collector with nothing to report may return null or an empty map.
  virtual std::unique_ptr<History> dumpSystemStateHistory() = 0;

  // What all collectors share. Thread-safe.
  class Utils {
   public:
    // Returns the monotonic clock's time in milliseconds. Returns 0 and logs an error if it cannot be read.
    static uint64_t monotonicMilliseconds();

    // Returns a report of the time `nowMs` with an empty time series.
    static Json::Value makeJsonReport(uint64_t nowMs);
    // Appends {"dt_ms": dtMs, "v": value} to the time series of `report`, which is created if it is missing.
    // `dtMs` is the sample's age in milliseconds.
    static void addTimeSeriesDataToJsonReport(Json::Value& report, uint64_t dtMs, Json::Value value);
    // Turns the order of the time series of `report` around.
    static void reverseTimeSeries(Json::Value& report);
    // Returns the text of `report` under `historyName`.
    static std::unique_ptr<History> makeHistory(const char* historyName, const Json::Value& report);
  };

 private:
  const SystemStateCollectorConfig mConfig;
};

}  // namespace Torv::OS::Diagnostics
