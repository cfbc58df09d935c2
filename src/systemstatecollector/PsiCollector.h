#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include "TextCollector.h"

namespace Torv::OS::Diagnostics {

// Pressure stall information: the share of time in which tasks waited for one resource. Each collector
// samples one resource, from a file under /proc/pressure:
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

// The collector of one resource, whose file `kInfo` names.
template <const SourceInfo& kInfo>
class PsiCollectorOf : public PsiCollector {
 public:
  // Opens the resource's file. Returns null and logs an error if it cannot be opened.
  static std::unique_ptr<PsiCollectorOf> init(SystemStateCollectorConfig config) {
    return initFrom<PsiCollectorOf>(kInfo, config);
  }
  // Takes over an open stream, or a source, of that file.
  PsiCollectorOf(const SystemStateCollectorConfig& config, TextSource source)
      : PsiCollector(config, kInfo, std::move(source)) {}
};

extern const SourceInfo kPsiCpu;     // /proc/pressure/cpu
extern const SourceInfo kPsiMemory;  // /proc/pressure/memory
extern const SourceInfo kPsiIo;      // /proc/pressure/io

using PsiCpuCollector = PsiCollectorOf<kPsiCpu>;
using PsiMemCollector = PsiCollectorOf<kPsiMemory>;
using PsiIoCollector = PsiCollectorOf<kPsiIo>;

}  // namespace Torv::OS::Diagnostics
