#include "Check.h"
#include "GpuCollector.h"

using namespace Torv::OS::Diagnostics;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  GpuCollector::GpuUtilStats previous;
  forEachLine(data, size, [&](std::string_view found, const std::string& line) {
    std::istringstream words(line);
    GpuCollector::GpuUtilStats plain;
    words >> plain.busy >> plain.total;

    const auto stats = GpuCollector::parseLine(found);
    check(stats.busy == plain.busy && stats.total == plain.total, "counters");
    const auto percent = GpuCollector::utilizationPercent(previous, stats);
    check(percent.has_value() == (plain.total != previous.total) && (!percent || *percent >= 0),
          "utilisation");
    previous = stats;
  });
  return 0;
}
