#include "HistoryChart.h"

#include <algorithm>
#include <optional>
#include <tuple>
#include <vector>

#include <fmt/format.h>

#include "text/Text.h"

namespace diagctl {
namespace {

using timeline::Scale;
using timeline::Series;
using timeline::Timeline;

constexpr size_t kMaxNameColumns = 24;
constexpr size_t kMinBars = 10;

// "98.5 %", "512 KiB", or the number alone if the series has no unit.
std::string withUnit(double value, timeline::Unit unit) {
  const std::string name = timeline::unitName(unit);
  return timeline::numberText(value) + (name.empty() ? "" : " " + name);
}

// What stands left and right of every bar, and the time that all of them show.
struct Frame {
  size_t nameColumns = 0;
  size_t barColumns = 0;
  int64_t fromMs = 0;
  int64_t toMs = 0;
};

// The newest and the highest value of a series that has at least one.
std::string summary(const Series& series) {
  std::optional<double> newest;
  std::optional<double> highest;
  for (const timeline::Point& point : series.points) {
    if (!point.value) continue;
    newest = point.value;
    highest = std::max(highest.value_or(*point.value), *point.value);
  }
  if (!newest) return "no values";
  if (timeline::isConstant(series)) return withUnit(*newest, series.unit) + " throughout";
  return fmt::format("now {}, highest {}", withUnit(*newest, series.unit), withUnit(*highest, series.unit));
}

// The bars take what names and summaries leave of the width. On a very narrow terminal the lines are cut
// instead.
Frame frameFor(const Timeline& timeline, size_t columns) {
  Frame frame;
  size_t summaryColumns = 0;
  frame.toMs = timeline.endMs;
  frame.fromMs = timeline.endMs;
  for (const Series& series : timeline.series) {
    frame.nameColumns = std::max(frame.nameColumns, text::columnsOf(text::printable(series.metric)));
    summaryColumns = std::max(summaryColumns, summary(series).size());
    if (!series.points.empty()) frame.fromMs = std::min(frame.fromMs, series.points.front().bootMs);
  }
  frame.nameColumns = std::min(frame.nameColumns, kMaxNameColumns);
  const size_t others = 2 + frame.nameColumns + 2 + 2 + summaryColumns;
  frame.barColumns = columns > others + kMinBars ? columns - others : kMinBars;
  return frame;
}

// What is drawn below it, and between which values.
// The scale is in the heading, because bars without one mislead: each would fill its line.
std::string heading(const Timeline& timeline, const Series& series) {
  const Scale scale = timeline::scaleOf(timeline, series);
  return fmt::format("{}, {} to {}", text::printable(series.source), timeline::numberText(scale.lowest),
                     withUnit(scale.highest, series.unit));
}

// By columns and not by bytes: names may hold characters that are wide, or longer than a byte.
std::string padded(const std::string& text, size_t columns) {
  const size_t used = text::columnsOf(text);
  return text + std::string(columns > used ? columns - used : 0, ' ');
}

// All lines show the same time, so a peak in one can be compared with what stands above and below it.
std::string chartLine(const Timeline& timeline, const Series& series, const Frame& frame,
                      timeline::Glyphs glyphs) {
  const std::string name =
      padded(text::cutTo(frame.nameColumns, text::printable(series.metric), "~"), frame.nameColumns);
  if (timeline::isConstant(series)) return "  " + name + "  " + summary(series);
  const auto columns = timeline::columnsOf(series, frame.fromMs, frame.toMs, frame.barColumns);
  return "  " + name + "  " + timeline::bars(columns, timeline::scaleOf(timeline, series), glyphs) + "  " +
         summary(series);
}

// Below the bars of the last chart, which have the same columns as all others.
// Rounded to seconds. On a narrow terminal only the beginning is told.
std::string timeAxis(const Frame& frame) {
  const std::string begin = fmt::format("{} s ago", (frame.toMs - frame.fromMs + 500) / 1000);
  const std::string end = "now";
  std::string axis = std::string(2 + frame.nameColumns + 2, ' ') + begin;
  if (begin.size() + end.size() < frame.barColumns) {
    axis += std::string(frame.barColumns - begin.size() - end.size(), ' ') + end;
  }
  return axis;
}

}  // namespace

const char kHistoriesOff[] =
    "Histories are off. diagctl prop set "
    "persist.device_config.pellux_shared_os_services.oscontrol_enable_diagnostic_collector_service_corr true "
    "switches them on when the service starts next.";

// The last step cuts every line, because a terminal may be narrower than the names and the summaries alone.
std::string historyCharts(const Timeline& timeline, size_t columns, timeline::Glyphs glyphs) {
  std::vector<const Series*> ordered;
  for (const Series& series : timeline.series) ordered.push_back(&series);
  // Metrics of one source on different scales have a heading for each scale.
  std::stable_sort(ordered.begin(), ordered.end(), [](const Series* a, const Series* b) {
    return std::tie(a->source, a->unit) < std::tie(b->source, b->unit);
  });
  // One frame for all charts, so that equal columns mean equal times in all of them.
  const Frame frame = frameFor(timeline, columns);
  std::vector<std::string> lines;
  const Series* last = nullptr;
  for (const Series* const series : ordered) {
    if (last == nullptr || last->source != series->source || last->unit != series->unit) {
      lines.emplace_back();
      lines.push_back(heading(timeline, *series));
    }
    last = series;
    lines.push_back(chartLine(timeline, *series, frame, glyphs));
  }
  if (!lines.empty()) lines.push_back(timeAxis(frame));
  std::string charts;
  for (const std::string& line : lines) charts += text::cutTo(columns, line, "~") + '\n';
  return charts;
}

}  // namespace diagctl
