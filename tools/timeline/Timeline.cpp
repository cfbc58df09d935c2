#include "timeline/Timeline.h"

#include <algorithm>

#include <time.h>

#include "base/Clock.h"

namespace timeline {
namespace {

int64_t readMs(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return Torv::Base::toMilliseconds(now);
}

}  // namespace

// Three calls one after the other: some microseconds between them do not matter to milliseconds.
Clocks readClocks() {
  return {readMs(CLOCK_BOOTTIME), readMs(CLOCK_MONOTONIC), readMs(CLOCK_REALTIME)};
}

// The newest readings serve for all times. If the wall clock was set in between, earlier times come out as
// they would read on the clock as it is now, which keeps distances right.
int64_t wallMsOf(const Timeline& timeline, int64_t bootMs) {
  return timeline.clocks.wallMs + (bootMs - timeline.clocks.bootMs);
}

std::string nameOf(const Timeline& timeline, int32_t pid) {
  const auto name = timeline.names.find(pid);
  return name == timeline.names.end() ? "" : name->second;
}

// One scale for all metrics of a source, so that free and total memory can be compared.
Scale scaleOf(const Timeline& timeline, const Series& series) {
  if (series.unit == Unit::Percent) return {};
  Scale scale{0, 0};
  for (const Series& other : timeline.series) {
    if (other.source != series.source || other.unit != series.unit) continue;
    for (const Point& point : other.points) {
      scale.lowest = std::min(scale.lowest, point.value.value_or(0));
      scale.highest = std::max(scale.highest, point.value.value_or(0));
    }
  }
  if (scale.highest <= scale.lowest) scale.highest = scale.lowest + 1;
  return scale;
}

// Exact comparison is wanted: a source that stands still repeats the same number, and one that moves a little
// is worth a chart.
bool isConstant(const Series& series) {
  std::optional<double> first;
  for (const Point& point : series.points) {
    if (!point.value) continue;
    if (!first) first = point.value;
    if (*first != *point.value) return false;
  }
  return first.has_value();
}

std::string unitName(Unit unit) {
  switch (unit) {
    case Unit::Percent:
      return "%";
    case Unit::Kibibytes:
      return "KiB";
    case Unit::None:
      break;
  }
  return "";
}

// Replays all changes up to `bootMs`, which keeps the timeline a plain list: nothing has to be undone to step
// back.
std::vector<ProcessSnapshot> processesAt(const Timeline& timeline, int64_t bootMs) {
  std::map<int32_t, ProcessSnapshot> byPid;
  for (const KeyChange& change : timeline.changes) {
    if (change.seenMs > bootMs) break;
    ProcessSnapshot& process = byPid[change.pid];
    if (change.value) {
      process.keys[change.key] = {*change.value, change.seenMs, change.known};
    } else {
      process.keys.erase(change.key);
    }
  }
  for (const Death& death : timeline.deaths) {
    const auto process = byPid.find(death.pid);
    if (death.seenMs > bootMs || process == byPid.end()) continue;
    // What is published after a death is of another process with the same pid.
    const auto newer = [&](const auto& key) { return key.second.changedMs > death.seenMs; };
    if (std::none_of(process->second.keys.begin(), process->second.keys.end(), newer)) {
      process->second.deadMs = death.seenMs;
    }
  }
  std::vector<ProcessSnapshot> processes;
  for (auto& [pid, process] : byPid) {
    if (process.keys.empty()) continue;
    process.pid = pid;
    process.name = nameOf(timeline, pid);
    processes.push_back(std::move(process));
  }
  return processes;
}

// Looks through all changes: a page asks once or twice, so an index by pid would cost more than it saves.
std::vector<KeyChange> changesOf(const Timeline& timeline, int32_t pid) {
  std::vector<KeyChange> changes;
  for (const KeyChange& change : timeline.changes) {
    if (change.pid == pid) changes.push_back(change);
  }
  return changes;
}

}  // namespace timeline
