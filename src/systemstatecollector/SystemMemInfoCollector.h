#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "TextCollector.h"

namespace Torv::OS::Diagnostics {

// The size of the memory and the parts of it that are free, from five lines of /proc/meminfo such as
//   MemTotal:       24684092 kB
// (proc(5)). Metrics: "MemTotal_KB" and so on, as far as the lines are there, and "MemAvail_%".
class SystemMemInfoCollector : public TextCollector {
 public:
  struct MemInfo {
    // The first three are required for the percentage.
    static constexpr std::array<std::string_view, 5> kNames = {"MemTotal", "MemFree", "MemAvailable",
                                                               "Buffers", "Cached"};
    static constexpr size_t kRequired = 3;

    std::array<std::optional<uint32_t>, kNames.size()>
        valuesKb;                // as kNames; nullopt if no line had the name
    size_t requiredFound = 0;    // lines with a required name; a name that comes twice counts twice
    size_t additionalFound = 0;  // lines with one of the other names
  };

  // Parses `text` line by line until as many required and additional lines are found as there are names. The
  // last character of a line's first word is dropped as its colon, whatever it is. Takes any bytes.
  static MemInfo parse(std::string_view text);

  // Returns the available memory in percent of the total. Returns nullopt if fewer than three required lines
  // were found or the total is 0.
  static std::optional<double> availablePercent(const MemInfo& info);

  // Opens /proc/meminfo. Returns null and logs an error if it cannot be opened.
  static std::unique_ptr<SystemMemInfoCollector> init(SystemStateCollectorConfig config);
  // Takes over an open stream, or a source, of that file.
  SystemMemInfoCollector(const SystemStateCollectorConfig& config, TextSource source);

 private:
  // Logs an error for each sample that has no percentage.
  void extractMetrics(const RawMetric& sample, Json::Value& out) override;
};

}  // namespace Torv::OS::Diagnostics
