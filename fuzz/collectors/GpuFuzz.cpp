#include "Check.h"
#include "GpuCollector.h"
#include "TextScanner.h"

using namespace Torv::OS::Diagnostics;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::string_view rest = text;
  std::string_view found;
  GpuUtilStats previous;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    GpuUtilStats plain;
    words >> plain.busy >> plain.total;

    check(nextLine(rest, found) && found == line, "line");
    const GpuUtilStats stats = parseGpuLine(found);
    check(stats.busy == plain.busy && stats.total == plain.total, "counters");
    const auto percent = gpuUtilizationPercent(previous, stats);
    check(percent.has_value() == (plain.total != previous.total) && (!percent || *percent >= 0),
          "utilisation");
    previous = stats;
  }
  check(!nextLine(rest, found), "end");
  return 0;
}
