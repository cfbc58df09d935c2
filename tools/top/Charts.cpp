#include "Charts.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "text/Text.h"

namespace top {
namespace {

using timeline::Glyphs;
using timeline::Series;

constexpr size_t kNameColumns = 16;
constexpr size_t kValueColumns = 8;
constexpr size_t kMaxChartRows = 4;

struct Name {
  std::string_view source;
  std::string_view text;
};
constexpr std::array<Name, 7> kNames = {{{"cpu_utilization_history", "CPU"},
                                         {"gpu_utilization_history", "GPU"},
                                         {"psi_cpu_history", "CPU stalled"},
                                         {"psi_memory_history", "memory stalled"},
                                         {"psi_io_history", "I/O stalled"},
                                         {"system_meminfo_history", "memory free"},
                                         {"battery_state_history", "battery charge"}}};

// The series is a part of the timeline that is drawn.
struct Chart {
  std::string name;
  const Series* series;
};

// Pressure has one chart for each resource: the share of time in which some task was stalled.
bool isDrawn(const Series& series) {
  if (series.unit != timeline::Unit::Percent) return false;
  return !series.source.starts_with("psi_") || series.metric == "some_stalled_%";
}

// The known sources in the order of their names above, then all others.
std::vector<Chart> chartsOf(const timeline::Timeline& timeline) {
  std::array<std::vector<Chart>, kNames.size() + 1> charts;
  for (const Series& series : timeline.series) {
    if (!isDrawn(series)) continue;
    const auto name = std::find_if(kNames.begin(), kNames.end(),
                                   [&](const Name& known) { return known.source == series.source; });
    charts[static_cast<size_t>(name - kNames.begin())].push_back(
        {name == kNames.end() ? text::printable(series.metric) : std::string(name->text), &series});
  }
  std::vector<Chart> ordered;
  for (auto& group : charts) ordered.insert(ordered.end(), group.begin(), group.end());
  return ordered;
}

// A dash says that there is no value, which is not the same as zero.
std::string valueText(const std::optional<double>& value) {
  return value ? fmt::format("{:.1f} %", *value) : "-";
}

// One row of a chart that is `rows` high; row 0 is the lowest. Its glyphs show the part of each value that
// lies in the row's share of the scale.
std::string barsOf(const std::vector<std::optional<double>>& values, size_t row, size_t rows, Glyphs glyphs) {
  const double height = 100.0 / static_cast<double>(rows);
  const timeline::Scale part{height * static_cast<double>(row), height * static_cast<double>(row + 1)};
  std::vector<std::optional<double>> shown = values;
  for (auto& value : shown) {
    if (row > 0 && value && *value <= part.lowest) value.reset();
  }
  return bars(shown, part, glyphs);
}

// The ends of the scale stand at the right of the rows that have no value there.
std::string scaleMark(size_t row, size_t rows) {
  if (rows == 1) return "";
  if (row == rows - 1) return "100 %";
  return row == 0 ? "0 %" : "";
}

// From the top row to the lowest. The name and the newest value stand in the top row, so a chart of one row
// has both.
void addChart(std::vector<Line>& lines, const Chart& chart, int64_t endMs, size_t columns, size_t rows,
              Glyphs glyphs) {
  const auto values = columnsOf(*chart.series, endMs - kChartMs, endMs, columns);
  for (size_t row = rows; row-- > 0;) {
    const bool isTop = row == rows - 1;
    const std::string name = isTop ? text::cutTo(kNameColumns - 1, chart.name, "") : "";
    lines.push_back(
        {{fmt::format("{:<{}}", name, kNameColumns), Style::Strong},
         {barsOf(values, row, rows, glyphs), Style::Chart},
         {fmt::format("{:>{}}", isTop ? valueText(values.back()) : scaleMark(row, rows), kValueColumns),
          isTop ? Style::Strong : Style::Faint}});
  }
}

// "-2:00 ... -1:00 ... 0" below the columns of the charts.
Line axisLine(size_t columns) {
  constexpr int64_t kTickMs = 30'000;
  std::string axis(columns, ' ');
  for (int64_t ago = kChartMs; ago > 0; ago -= kTickMs) {
    const std::string mark = fmt::format("|-{}:{:02}", ago / 60'000, ago / 1000 % 60);
    const size_t at = columns - columns * static_cast<size_t>(ago) / kChartMs;
    if (at + mark.size() + 1 < columns) axis.replace(at, mark.size(), mark);
  }
  axis.back() = '|';
  return {{fmt::format("{:<{}}", "0 to 100 %", kNameColumns), Style::Faint}, {axis, Style::Faint}};
}

}  // namespace

// All charts have the same height, because they have the same scale. Those that find no room are left out,
// the last ones first; a terminal too narrow for bars of ten columns shows the list alone.
std::vector<Line> chartLines(const timeline::Timeline& timeline, int64_t endMs, Size size, Glyphs glyphs) {
  const std::vector<Chart> charts = chartsOf(timeline);
  if (size.rows == 0) return {};
  if (charts.empty()) return {{{"The service gives no histories.", Style::Faint}}};
  constexpr size_t kMinColumns = 10;
  if (size.rows < 2 || size.columns < kNameColumns + kMinColumns + kValueColumns) return {};

  const size_t columns = size.columns - kNameColumns - kValueColumns;
  const size_t rows = std::clamp((size.rows - 1) / charts.size(), size_t{1}, kMaxChartRows);
  std::vector<Line> lines;
  // Strictly less, because the axis takes one row.
  for (const Chart& chart : charts) {
    if (lines.size() + rows < size.rows) addChart(lines, chart, endMs, columns, rows, glyphs);
  }
  lines.push_back(axisLine(columns));
  return lines;
}

}  // namespace top
