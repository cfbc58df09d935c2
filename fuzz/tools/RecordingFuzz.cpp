// Recordings and crash reports of any content: the readers take them or refuse them, and what they take keeps
// the promises that every view relies on.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "base/Json.h"
#include "timeline/Chart.h"
#include "timeline/Sources.h"
#include "timeline/Trace.h"

namespace {

void require(bool holds) {
  if (!holds) abort();
}

void use(const timeline::Timeline& timeline) {
  require(std::ranges::is_sorted(timeline.changes, {}, &timeline::KeyChange::seenMs));
  require(std::ranges::is_sorted(timeline.globals, {}, &timeline::GlobalChange::publishedMs));
  require(std::ranges::is_sorted(timeline.deaths, {}, &timeline::Death::seenMs));
  require(std::ranges::is_sorted(timeline.gaps, {}, &timeline::Gap::fromMs));
  for (const timeline::Series& series : timeline.series) {
    // No time stands twice either.
    require(std::ranges::is_sorted(series.points, std::less_equal{}, &timeline::Point::bootMs));
    const auto columns = timeline::columnsOf(series, timeline.beginMs, timeline.endMs, 40);
    const auto bars = timeline::bars(columns, timeline::scaleOf(timeline, series), timeline::Glyphs::Ascii);
    require(bars.size() == 40);
  }
  static_cast<void>(timeline::processesAt(timeline, timeline.endMs));
  require(!timeline::toTrace(timeline).empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (const auto timeline = timeline::fromRecording(text); timeline.ok()) use(*timeline);
  const auto json = Torv::Base::parseJson(text, Torv::Base::JsonRules::Strict);
  if (!json.ok()) return 0;
  if (const auto timeline = timeline::fromReport(*json); timeline.ok()) use(*timeline);
  return 0;
}
