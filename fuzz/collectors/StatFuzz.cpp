#include <cmath>
#include <cstring>
#include <sstream>

#include "CpuUsageCollector.h"
#include "Fuzz.h"

using namespace Torv::OS::Diagnostics;
using CpuStats = CpuUsageCollector::CpuStats;

FUZZ(text) {
  std::string_view rest = text;
  CpuStats previous;
  CpuStats found;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string name;
    words >> name;
    if (line.find("cpu") == std::string::npos || name != "cpu") continue;
    CpuStats stats;
    words >> stats.user >> stats.nice >> stats.system >> stats.idle >> stats.iowait >> stats.irq >>
        stats.softirq >> stats.steal >> stats.guest >> stats.guestNice;

    check(CpuUsageCollector::parseNext(rest, found), "missed line");
    check(std::memcmp(&found, &stats, sizeof(stats)) == 0, "counters");
    const auto percent = CpuUsageCollector::utilizationPercent(previous, found);
    check(!percent || std::isfinite(*percent), "utilisation");
    previous = found;
  }
  check(!CpuUsageCollector::parseNext(rest, found), "line that is none");
}
