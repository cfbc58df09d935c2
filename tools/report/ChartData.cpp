#include "ChartData.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include <json/value.h>
#include <json/writer.h>

#include "text/Text.h"

namespace report {
namespace {

using timeline::KeyChange;
using timeline::Series;

// A process can publish any number of keys, of any length. The tables show all of them, the charts these.
constexpr size_t kMaxLanes = 40;
constexpr size_t kMaxLaneColumns = 200;
constexpr std::string_view kStalled = "_stalled_%";

// Charts are ordered by place, then title, then unit: one source may need two scales.
struct Chart {
  int place;  // of the chart on the page
  std::string title;
  timeline::Unit unit;

  bool operator<(const Chart& other) const {
    return std::tie(place, title, unit) < std::tie(other.place, other.title, other.unit);
  }
};

// The chart that a series belongs to. All other sources have a chart of their own, below the known ones.
Chart chartOf(const Series& series) {
  if (series.source == "cpu_utilization_history") return {0, "CPU", series.unit};
  if (series.source == "gpu_utilization_history") return {1, "GPU", series.unit};
  if (series.source.starts_with("psi_")) return {2, "Pressure: share of time stalled", series.unit};
  if (series.source == "system_meminfo_history") return {3, "Memory", series.unit};
  if (series.source == "battery_state_history") return {4, "Battery", series.unit};
  return {5, text::printable(series.source), series.unit};
}

// Of pressure, the share of time stalled tells when it happened; the kernel's averages lag behind. They stand
// in the tables.
bool isDrawn(const Series& series) {
  return !series.source.starts_with("psi_") || series.metric.ends_with(kStalled);
}

// "psi_cpu_history", "some_stalled_%" is "cpu some".
std::string lineName(const Series& series) {
  if (!series.source.starts_with("psi_")) return text::printable(series.metric);
  std::string_view source = series.source;
  source.remove_prefix(std::string_view("psi_").size());
  std::string_view metric = series.metric;
  metric.remove_suffix(kStalled.size());
  return text::printable(std::string(source.substr(0, source.find('_'))) + " " + std::string(metric));
}

// A gap is a pair with null, which page.js draws as a break. Leaving the point out would join its neighbours.
Json::Value lineOf(const Scope& scope, const Series& series) {
  Json::Value line;
  line["name"] = lineName(series);
  Json::Value& points = line["points"] = Json::Value(Json::arrayValue);
  for (const timeline::Point& point : series.points) {
    if (!scope.holds(point.bootMs)) continue;
    Json::Value& pair = points.append(Json::Value(Json::arrayValue));
    pair.append(static_cast<Json::Int64>(scope.offset(point.bootMs)));
    pair.append(point.value ? Json::Value(*point.value) : Json::Value());
  }
  return line;
}

// The scale comes from the whole timeline and not from the part that is shown, so that two pages of one
// recording can be compared.
Json::Value chartsOf(const Scope& scope) {
  std::map<Chart, Json::Value> charts;
  for (const Series& series : scope.timeline.series) {
    if (!isDrawn(series)) continue;
    const Chart place = chartOf(series);
    Json::Value& chart = charts[place];
    const timeline::Scale scale = scaleOf(scope.timeline, series);
    chart["title"] = place.title;
    chart["unit"] = unitName(series.unit);
    chart["low"] = scale.lowest;
    chart["high"] = scale.highest;
    chart["lines"].append(lineOf(scope, series));
  }
  Json::Value all(Json::arrayValue);
  for (auto& [place, chart] : charts) all.append(std::move(chart));
  return all;
}

// A value that is older than the page begins with the page.
Json::Value markOf(const Scope& scope, int64_t bootMs) {
  Json::Value mark;
  mark["at"] = static_cast<Json::Int64>(scope.offset(std::max(bootMs, scope.beginMs)));
  mark["to"] = 0;
  return mark;
}

// Adds a mark to a lane. It holds until the next one.
void append(Json::Value& marks, Json::Value mark) {
  if (!marks.empty()) marks[marks.size() - 1]["to"] = mark["at"];
  marks.append(std::move(mark));
}

// One row of bars on the page: the name at the left, the marks in the order of their times.
Json::Value laneOf(const std::string& key, Json::Value marks) {
  Json::Value lane;
  lane["key"] = key;
  lane["changes"] = std::move(marks);
  return lane;
}

// A bar has room for a few words. The table below the charts has all of the text.
std::string brief(std::string_view text) {
  return text::cutTo(kMaxLaneColumns, text::printable(text));
}

// A lane for each key: the value that held when the page begins, then the changes.
std::map<std::string, Json::Value> keyLanes(const Scope& scope) {
  std::map<std::string, Json::Value> lanes;
  for (const KeyChange& change : changesOf(scope.timeline, *scope.pid)) {
    if (change.seenMs > scope.endMs) break;
    Json::Value& marks = lanes.try_emplace(change.key, Json::arrayValue).first->second;
    if (change.seenMs < scope.beginMs) marks.clear();
    Json::Value mark = markOf(scope, change.seenMs);
    mark["value"] = change.value ? Json::Value(brief(*change.value)) : Json::Value();
    mark["known"] = change.known || change.seenMs < scope.beginMs;
    append(marks, std::move(mark));
  }
  return lanes;
}

// The process's own death is the end of the page and needs no mark.
Json::Value deathMarks(const Scope& scope) {
  Json::Value marks(Json::arrayValue);
  for (const timeline::Death& death : scope.timeline.deaths) {
    if (&death == scope.death || !scope.holds(death.seenMs)) continue;
    Json::Value mark = markOf(scope, death.seenMs);
    mark["value"] = std::to_string(death.pid) + " died";
    mark["death"] = true;
    append(marks, std::move(mark));
  }
  return marks;
}

// True if a change was seen in the time of the page. A value that held all the time is no change.
bool isChanging(const Json::Value& marks) {
  return std::any_of(marks.begin(), marks.end(), [](const auto& mark) { return !mark["known"].asBool(); });
}

// The keys that changed come first.
Json::Value lanesOf(const Scope& scope) {
  Json::Value lanes(Json::arrayValue);
  std::map<std::string, Json::Value> keys;
  if (scope.pid) keys = keyLanes(scope);
  // Two rounds over the same map keep the order of the names within each half.
  for (const bool changing : {true, false}) {
    for (const auto& [key, marks] : keys) {
      if (isChanging(marks) == changing && lanes.size() < kMaxLanes) lanes.append(laneOf(brief(key), marks));
    }
  }
  Json::Value deaths = deathMarks(scope);
  if (!deaths.empty()) lanes.append(laneOf("other processes", std::move(deaths)));
  return lanes;
}

// Gaps may reach beyond the page; the script cuts them at the edge of each chart.
Json::Value gapsOf(const Scope& scope) {
  Json::Value gaps(Json::arrayValue);
  for (const timeline::Gap& gap : scope.timeline.gaps) {
    if (gap.toMs < scope.beginMs || gap.fromMs > scope.endMs) continue;
    Json::Value& json = gaps.append(Json::Value());
    json["from"] = static_cast<Json::Int64>(scope.offset(gap.fromMs));
    json["to"] = static_cast<Json::Int64>(scope.offset(gap.toMs));
  }
  return gaps;
}

// Inside JSON the three characters stand in strings only, so they can be written as escapes.
std::string forScriptElement(const std::string& json) {
  std::string result;
  for (const char c : json) {
    switch (c) {
      case '<':
        result += "\\u003c";
        break;
      case '>':
        result += "\\u003e";
        break;
      case '&':
        result += "\\u0026";
        break;
      default:
        result += c;
    }
  }
  return result;
}

}  // namespace

// Three digits behind the point are more than a chart can show, and keep ten minutes of samples small. The
// writer gives ASCII; the line separators of Unicode, which end a line of JavaScript, are escaped with all
// else.
std::string chartData(const Scope& scope) {
  Json::Value data;
  data["begin"] = static_cast<Json::Int64>(scope.offset(scope.beginMs));
  data["endWall"] = static_cast<Json::Int64>(wallMsOf(scope.timeline, scope.endMs));
  data["death"] = scope.death != nullptr;
  data["charts"] = chartsOf(scope);
  data["lanes"] = lanesOf(scope);
  data["gaps"] = gapsOf(scope);
  Json::StreamWriterBuilder settings;
  settings["indentation"] = "";
  settings["precision"] = 3;
  settings["precisionType"] = "decimal";
  return forScriptElement(Json::writeString(settings, data));
}

}  // namespace report
