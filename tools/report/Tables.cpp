#include "Tables.h"

#include <map>
#include <utility>
#include <vector>

#include <string.h>

#include <fmt/format.h>

#include "Html.h"

namespace report {
namespace {

using timeline::KeyState;
using timeline::ProcessSnapshot;
using timeline::Series;

// The distance to the end is what one compares; the time of day, without the date, finds the line in other
// logs.
std::string timeCell(const Scope& scope, int64_t bootMs, bool known) {
  if (known) return "earlier";
  constexpr size_t kDate = std::string_view("2026-11-21 ").size();
  return fmt::format("{} <small>{}</small>", offsetText(scope.offset(bootMs)),
                     wallText(wallMsOf(scope.timeline, bootMs)).substr(kDate));
}

// A row of the head. What is not known has no row, because an empty one would look like a value.
std::string fact(std::string_view name, const std::string& html) {
  return html.empty() ? "" : fmt::format("<tr><th>{}<td>{}\n", name, html);
}

// Real-time signals have no short name.
std::string signalText(int signal) {
  const char* const name = sigabbrev_np(signal);
  return name == nullptr ? std::to_string(signal)
                         : fmt::format("{} (SIG{}: {})", signal, name, strsignal(signal));
}

// In the order of the keys: one looks for a name, and the time of the change stands beside it.
std::string stateRows(const Scope& scope, const std::map<std::string, KeyState>& keys) {
  std::string rows;
  for (const auto& [key, state] : keys) {
    rows += row({timeCell(scope, state.changedMs, state.known), shownShort(key), shownShort(state.value)});
  }
  return rows;
}

// The newest value of each state at the end of the page. The recording may go on after it.
std::string globalRows(const Scope& scope) {
  // Changes are in the order of their times, so the last one of a key wins.
  std::map<std::pair<std::string, std::string>, const timeline::GlobalChange*> newest;
  for (const timeline::GlobalChange& change : scope.timeline.globals) {
    if (change.publishedMs <= scope.endMs) newest[{change.nameSpace, change.key}] = &change;
  }
  std::string rows;
  for (const auto& [name, change] : newest) {
    rows += row({timeCell(scope, change->publishedMs, false), shownShort(change->nameSpace),
                 shownShort(change->key), shownShort(change->value)});
  }
  return rows;
}

// Gaps stand before deaths and tell why a chart is empty.
std::string eventRows(const Scope& scope) {
  std::string rows;
  for (const timeline::Gap& gap : scope.timeline.gaps) {
    if (gap.toMs < scope.beginMs || gap.fromMs > scope.endMs) continue;
    rows += row({timeCell(scope, gap.fromMs, false),
                 fmt::format("Nothing was seen for {:.1f} s: {}",
                             static_cast<double>(gap.toMs - gap.fromMs) / 1000, isolated(gap.reason))});
  }
  for (const timeline::Death& death : scope.timeline.deaths) {
    if (!scope.holds(death.seenMs)) continue;
    const std::string name = nameOf(scope.timeline, death.pid);
    rows +=
        row({timeCell(scope, death.seenMs, false),
             fmt::format("Process {} died.{}", death.pid, name.empty() ? "" : " It was " + isolated(name))});
  }
  return rows;
}

using Samples = std::map<int64_t, std::vector<std::string>, std::greater<>>;

// The rows of a source: by time, a cell for each metric.
// An empty cell is a gap. Ten digits hold every number that the sources give.
std::string figureTable(const Scope& scope, const std::vector<const Series*>& metrics) {
  Samples samples;
  for (size_t column = 0; column < metrics.size(); ++column) {
    for (const timeline::Point& point : metrics[column]->points) {
      if (!scope.holds(point.bootMs)) continue;
      auto& cells = samples.try_emplace(point.bootMs, metrics.size()).first->second;
      if (point.value) cells[column] = fmt::format("{:.10g}", *point.value);
    }
  }
  std::string html = fmt::format("<h3>{}</h3>\n", shown(metrics.front()->source));
  if (samples.empty()) return html + "<p class=\"none\">No samples.</p>\n";
  // The unit stands in the head only if the metric's own name does not end with it.
  html += "<table class=\"numbers\"><thead><tr><th>Time";
  for (const Series* const series : metrics) {
    const std::string unit = unitName(series->unit);
    const bool told = unit.empty() || series->metric.ends_with(unit);
    html += "<th>" + shown(series->metric) + (told ? "" : " (" + unit + ")");
  }
  html += "</thead><tbody>\n";
  for (const auto& [bootMs, cells] : samples) {
    html += "<tr><td>" + offsetText(scope.offset(bootMs));
    for (const std::string& cell : cells) html += "<td>" + cell;
    html += '\n';
  }
  return html + "</tbody></table>\n";
}

}  // namespace

// The pid is always told, because names are not unique.
std::string processName(const Scope& scope) {
  if (!scope.pid) return "The machine";
  const std::string name = nameOf(scope.timeline, *scope.pid);
  if (name.empty()) return fmt::format("Process {}", *scope.pid);
  return fmt::format("{} ({})", isolated(name), *scope.pid);
}

// Only a crash report tells the program's path and the signal; a recording gives the rest.
std::string factsTable(const Scope& scope) {
  const timeline::Death* const death = scope.death;
  const auto build = scope.timeline.context.find("build_fingerprint");
  const std::string when = wallText(wallMsOf(scope.timeline, scope.endMs));
  return fact("Process", processName(scope)) +
         fact("Program", death != nullptr ? shown(death->program) : "") +
         fact("Signal", death != nullptr && death->signal ? signalText(*death->signal) : "") +
         fact(death != nullptr ? "Died" : "Seen", when + " UTC") +
         fact("Shown",
              fmt::format("the last {:.1f} s", static_cast<double>(scope.endMs - scope.beginMs) / 1000)) +
         fact("Build", build == scope.timeline.context.end() ? "" : shown(build->second)) +
         fact("Machine", shown(scope.timeline.machine));
}

// As they were at the end: what a process with the same pid has published after the death is not the dead
// one's.
std::string statesTable(const Scope& scope) {
  if (!scope.pid) return "<p class=\"none\">The report is about no single process.</p>";
  std::string rows;
  for (const ProcessSnapshot& process : processesAt(scope.timeline, scope.endMs)) {
    if (process.pid == *scope.pid) rows = stateRows(scope, process.keys);
  }
  return table({"Changed", "Key", "Value"}, rows, "It had published no state.");
}

// Values that held before the first look stand in the table of states only: nobody saw them change.
std::string changesTable(const Scope& scope) {
  std::string rows;
  if (scope.pid) {
    for (const timeline::KeyChange& change : changesOf(scope.timeline, *scope.pid)) {
      if (change.known || !scope.holds(change.seenMs)) continue;
      rows += row({timeCell(scope, change.seenMs, false), shownShort(change.key),
                   change.value ? shownShort(*change.value) : "<span class=\"none\">no longer known</span>"});
    }
  }
  return table({"Seen", "Key", "New value"}, rows, "No change was seen in this time.");
}

// The context without its histories, which are charts and figures further down.
std::string systemTables(const Scope& scope) {
  std::string context;
  for (const auto& [key, value] : scope.timeline.context)
    context += row({shownShort(key), shownShort(value)});
  return table({"Key", "Value"}, context, "The system context is not known.") + "<h3>Global states</h3>" +
         table({"Published", "Namespace", "Key", "Value"}, globalRows(scope), "None.") +
         "<h3>Deaths and gaps</h3>" + table({"Seen", "What"}, eventRows(scope), "None in this time.");
}

// A table for each source, because metrics of one source have the same times and share the rows.
std::string figureTables(const Scope& scope) {
  std::map<std::string, std::vector<const Series*>> sources;
  for (const Series& series : scope.timeline.series) sources[series.source].push_back(&series);
  std::string html;
  for (const auto& [source, metrics] : sources) html += figureTable(scope, metrics);
  return html.empty() ? "<p class=\"none\">The service gave no histories.</p>" : html;
}

// A heading for each process, then its keys. Folded by the page, because there may be hundreds.
std::string othersTable(const Scope& scope) {
  std::string html;
  for (const ProcessSnapshot& process : processesAt(scope.timeline, scope.endMs)) {
    if (process.pid == scope.pid) continue;
    html += fmt::format("<tr><th colspan=\"3\">{} {}", process.pid, isolated(process.name));
    if (process.deadMs) {
      html += fmt::format(" <span class=\"dead\">died {}</span>", offsetText(scope.offset(*process.deadMs)));
    }
    html += '\n';
    for (const auto& [key, state] : process.keys) {
      const std::string changed = state.known ? "" : offsetText(scope.offset(state.changedMs));
      html += row({changed, shownShort(key), shownShort(state.value)});
    }
  }
  return table({"Changed", "Key", "Value"}, html, "No other process has published a state.");
}

// The heading needs the number while the table is still folded away.
size_t countOthers(const Scope& scope) {
  size_t count = 0;
  for (const ProcessSnapshot& process : processesAt(scope.timeline, scope.endMs)) {
    if (process.pid != scope.pid) ++count;
  }
  return count;
}

}  // namespace report
