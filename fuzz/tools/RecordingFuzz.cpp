// Recordings and crash reports of any content: the readers take them or refuse them, and what they take keeps
// the promises that every view relies on.
#include <algorithm>

#include "Fuzz.h"
#include "base/Json.h"
#include "timeline/Chart.h"
#include "timeline/Sources.h"
#include "timeline/Trace.h"

static void use(const timeline::Timeline& timeline) {
  check(std::ranges::is_sorted(timeline.changes, {}, &timeline::KeyChange::seenMs), "changes in order");
  check(std::ranges::is_sorted(timeline.globals, {}, &timeline::GlobalChange::publishedMs),
        "states in order");
  check(std::ranges::is_sorted(timeline.deaths, {}, &timeline::Death::seenMs), "deaths in order");
  check(std::ranges::is_sorted(timeline.gaps, {}, &timeline::Gap::fromMs), "gaps in order");
  for (const timeline::Series& series : timeline.series) {
    check(std::ranges::is_sorted(series.points, std::less_equal{}, &timeline::Point::bootMs),
          "points in order, and no time twice");
    const auto columns = timeline::columnsOf(series, timeline.beginMs, timeline.endMs, 40);
    const auto bars = timeline::bars(columns, timeline::scaleOf(timeline, series), timeline::Glyphs::Ascii);
    check(bars.size() == 40, "a bar for each column");
  }
  static_cast<void>(timeline::processesAt(timeline, timeline.endMs));
  check(!timeline::toTrace(timeline).empty(), "a trace");
}

FUZZ(text) {
  if (const auto timeline = timeline::fromRecording(text); timeline.ok()) use(*timeline);
  const auto json = Torv::Base::parseJson(text, Torv::Base::JsonRules::Strict);
  if (!json.ok()) return;
  if (const auto timeline = timeline::fromReport(*json); timeline.ok()) use(*timeline);
}
