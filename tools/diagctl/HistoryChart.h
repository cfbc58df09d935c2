#pragma once

#include <cstddef>
#include <string>

#include "timeline/Chart.h"
#include "timeline/Timeline.h"

namespace diagctl {

// The histories of a timeline for a terminal of `columns` columns: for each source a heading and a line for
// each metric, all over the same time and on the scale that the heading names. A metric whose values are all
// equal is one number. No line is longer than `columns`; each ends in a newline.
//
//   psi_cpu_history, 0 to 100 %
//     full_avg10  0 % throughout
//     some_avg10  ▁▁▂▅▃▁▁▁  now 1.2 %, highest 53 %
//                 60 s ago                       now
//
// Empty if there are no histories.
std::string historyCharts(const timeline::Timeline& timeline, size_t columns, timeline::Glyphs glyphs);

// What is said if the service collects no histories because a flag is off.
extern const char kHistoriesOff[];

}  // namespace diagctl
