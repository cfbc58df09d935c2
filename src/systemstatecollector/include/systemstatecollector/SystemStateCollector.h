#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <unordered_map>

#include <json/value.h>

#include "systemstatecollector/SystemStateCollectorConfig.h"

namespace Torv::OS::Diagnostics {

// Watches one part of the system's state: keeps the raw samples of the last minute or two and makes sense of
// them only when they are asked for, because sampling goes on for as long as the device runs and dumps are
// rare. Samples are taken by the manager's polling thread, dumps by any thread, one at a time (the manager's
// lock sees to that); a dump may run while a sample is taken.
class SystemStateCollector {
 public:
  using History = std::unordered_map<std::string, std::string>;

  explicit SystemStateCollector(const SystemStateCollectorConfig& config) : mConfig(config) {}
  virtual ~SystemStateCollector() = default;
  SystemStateCollector(const SystemStateCollector&) = delete;
  SystemStateCollector& operator=(const SystemStateCollector&) = delete;

  // Unique among the collectors of a manager.
  virtual uint8_t getId() const = 0;
  virtual uint32_t getSampleRate() const { return mConfig.getSampleRate(); }
  virtual uint32_t getMaxSamples() const { return mConfig.getMaxSamples(); }
  virtual std::string getDescription() const = 0;

  // Takes one sample. False, with an error log and nothing stored, where the source is beyond reading.
  virtual bool collectSystemStateData() = 0;

  // The samples held, as one entry: the history's name and its report, the JSON text
  //   {"version": "1.0", "report_time_ms": T, "time_series": [{"dt_ms": age, "v": {metric: value}}, ...]}
  // with times and ages in milliseconds of the monotonic clock, newest sample first, and floating-point
  // values cut to two decimals. Does not clear anything. Null or empty where there is nothing to tell.
  virtual std::unique_ptr<History> dumpSystemStateHistory() = 0;

  // What all collectors share.
  class Utils {
   public:
    // Milliseconds of the monotonic clock; 0, with an error log, where it cannot be read.
    static uint64_t monotonicMilliseconds();
    // A clock reading in milliseconds, by way of microseconds in a double.
    static uint64_t toMilliseconds(const timespec& time);

    // A report with an empty time series.
    static Json::Value makeJsonReport(uint64_t nowMs);
    // Appends a sample to the report's time series.
    static void addTimeSeriesDataToJsonReport(Json::Value& report, uint64_t dtMs, Json::Value value);
    // The report's text under the history's name.
    static std::unique_ptr<History> finishJsonReport(const Json::Value& report, std::string historyName);
  };

 private:
  const SystemStateCollectorConfig mConfig;
};

}  // namespace Torv::OS::Diagnostics
