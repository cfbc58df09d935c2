#include "GpuCollector.h"
#include "Lines.h"

using namespace Torv::OS::Diagnostics;

FUZZ(text) {
  GpuCollector::GpuUtilStats previous;
  forEachLine(text, [&](std::string_view found, const std::string& line) {
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
}
