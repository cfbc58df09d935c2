#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>

#include "TextCollector.h"

namespace Torv::OS::Diagnostics {

// Pressure stall information: the share of time in which tasks waited for one resource. Three classes sample
// one resource each, from a file under /proc/pressure:
//   some avg10=0.12 avg60=0.34 avg300=0.05 total=6227413
//   full avg10=0.00 avg60=0.00 avg300=0.00 total=2113778
// (Documentation/accounting/psi.rst of the kernel). Metrics: "some_avg10" and so on, four for each line.
class PsiCollector : public TextCollector {
 public:
  // One line of the file. A field that the line does not have is empty or 0.
  struct PsiLine {
    std::array<char, 5> type{};  // "some" or "full", with a NUL behind it
    float avg10 = 0;             // percent of the last 10, 60 and 300 seconds
    float avg60 = 0;
    float avg300 = 0;
    uint64_t total = 0;  // microseconds of stall since boot
  };

  // Parses `line` up to a NUL byte, with the result of sscanf(line, "%4s avg10=%f avg60=%f avg300=%f
  // total=%lu"). Takes any bytes.
  static PsiLine parseLine(std::string_view line);

 protected:
  // `info` must outlive the collector.
  using TextCollector::TextCollector;

 private:
  void extractMetrics(const RawMetric& sample, Json::Value& out) override;
};

class PsiCpuCollector : public PsiCollector {
 public:
  // Opens /proc/pressure/cpu. Returns null and logs an error if it cannot be opened.
  static std::unique_ptr<PsiCpuCollector> init(SystemStateCollectorConfig config);
  // Takes over an open stream, or a source, of that file.
  PsiCpuCollector(const SystemStateCollectorConfig& config, TextSource source);
};

// The same for /proc/pressure/memory.
class PsiMemCollector : public PsiCollector {
 public:
  static std::unique_ptr<PsiMemCollector> init(SystemStateCollectorConfig config);
  PsiMemCollector(const SystemStateCollectorConfig& config, TextSource source);
};

// The same for /proc/pressure/io.
class PsiIoCollector : public PsiCollector {
 public:
  static std::unique_ptr<PsiIoCollector> init(SystemStateCollectorConfig config);
  PsiIoCollector(const SystemStateCollectorConfig& config, TextSource source);
};

}  // namespace Torv::OS::Diagnostics
