// The histories as charts on the scale of 0 to 100 per cent, over one time axis.
#pragma once

#include <cstdint>
#include <vector>

#include "timeline/Chart.h"
#include "timeline/Timeline.h"
#include "top/Lines.h"

namespace top {

// How much time the charts show.
// The longest history: 60 samples, one every other second.
inline constexpr int64_t kChartMs = 120'000;

// A chart for each metric in per cent, and the axis below them: at most `size.rows` lines that fill the
// width. The charts end at `endMs`. One line that says so if there is no metric; nothing if there is no room.
std::vector<Line> chartLines(const timeline::Timeline& timeline, int64_t endMs, Size size,
                             timeline::Glyphs glyphs);

}  // namespace top
