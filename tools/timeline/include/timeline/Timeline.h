// What a machine and its processes went through, as plain values. Every view (charts, pages, traces) draws
// from a Timeline and from nothing else; timeline/Sources.h fills one from an answer, a crash report or a
// recording.
//
// All times are milliseconds of the boot clock (CLOCK_BOOTTIME), which also counts the time in suspend. Texts
// are as the processes published them: UTF-8, of any length, and never to be trusted as markup or terminal
// output.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <json/value.h>

namespace timeline {

// Readings of three clocks, taken at the same moment, all in milliseconds.
struct Clocks {
  int64_t bootMs = 0;
  int64_t monotonicMs = 0;  // CLOCK_MONOTONIC: stands still in suspend
  int64_t wallMs = 0;       // since 1970, UTC

  bool operator==(const Clocks&) const = default;
};

// Reads the three clocks of this machine.
Clocks readClocks();

// What the numbers of a series count. The unit decides the scale of its charts (scaleOf).
enum class Unit {
  Percent,
  Kibibytes,
  None,  // a plain number
};

struct Point {
  int64_t bootMs = 0;
  // Empty: a gap. The metric has no value at this time, and no line may join the points before and after it.
  std::optional<double> value;

  bool operator==(const Point&) const = default;
};

// One metric of one history. A stall total of pressure (`some_total`, microseconds) appears as the share of
// time stalled since the sample before, in per cent, under the name `some_stalled_%`.
struct Series {
  std::string source;  // the history's name, "psi_cpu_history"
  std::string metric;  // "some_avg10"
  Unit unit = Unit::None;
  std::vector<Point> points;  // in the order of their times, no time twice

  bool operator==(const Series&) const = default;
};

// A process published a value, or a key of it is no longer known.
struct KeyChange {
  int64_t seenMs = 0;  // of the first answer that held it; it happened between this answer and the one before
  int32_t pid = 0;
  std::string key;
  std::optional<std::string> value;  // empty: the key is gone, because the service forgot the process
  // True if the first answer of all held it already: it is older than `seenMs`, and nobody knows by how much.
  bool known = false;

  bool operator==(const KeyChange&) const = default;
};

// A state of the whole system, "telemetry" / "service_session_id".
struct GlobalChange {
  int64_t publishedMs = 0;  // the service's answer tells it, so this is when it happened
  std::string nameSpace;
  std::string key;
  std::string value;

  bool operator==(const GlobalChange&) const = default;
};

// A process was found to run no more.
struct Death {
  int64_t seenMs = 0;
  int32_t pid = 0;
  std::optional<int> signal;  // known from a crash report only
  std::string program;        // the same; else empty

  bool operator==(const Death&) const = default;
};

// Nothing was seen in this time: the service did not answer, or the recorder did not run.
struct Gap {
  int64_t fromMs = 0;
  int64_t toMs = 0;  // of the next answer; the end of the timeline if there is none
  std::string reason;

  bool operator==(const Gap&) const = default;
};

// Everything that is known of a machine between two times. A plain value: copy it, compare it, change it.
// Threads may read one at the same time as long as none changes it.
struct Timeline {
  // The newest readings. They turn times of this timeline into wall-clock times (wallMsOf).
  Clocks clocks;
  int64_t beginMs = 0;  // of the oldest thing in the timeline
  int64_t endMs = 0;    // of the newest; of the death, in a crash report
  std::string machine;  // of a recording: the kernel's name and release, the processor; else empty

  std::vector<Series> series;      // ordered by source, then metric
  std::vector<KeyChange> changes;  // these four in the order of their times
  std::vector<GlobalChange> globals;
  std::vector<Death> deaths;
  std::vector<Gap> gaps;
  std::map<int32_t, std::string> names;        // pid to the program's short name, if it is known
  std::map<std::string, std::string> context;  // the newest system context without the histories
  // The last answer in the form of a crash report (docs/crash_report.schema.json); the report itself if the
  // timeline was made from one.
  Json::Value document;

  bool operator==(const Timeline&) const = default;
};

// The wall-clock time of a boot-clock time, in milliseconds since 1970 (UTC).
int64_t wallMsOf(const Timeline& timeline, int64_t bootMs);

// Returns the short name of the program that the process runs; empty if it is not known. Names are not
// unique: show the pid with them.
std::string nameOf(const Timeline& timeline, int32_t pid);

// The values between which a series is drawn, the same whatever its points are: 0 to 100 for per cent; 0 to
// the highest value of any metric of the same source and unit otherwise (memory: the machine's total).
// `highest` is above `lowest`.
struct Scale {
  double lowest = 0;
  double highest = 100;
};
Scale scaleOf(const Timeline& timeline, const Series& series);

// True if all values of the series (at least one) are equal: a view shows one number instead of a chart.
bool isConstant(const Series& series);

// "%", "KiB" or nothing.
std::string unitName(Unit unit);

// What one process looked like at a time.
struct KeyState {
  std::string value;
  int64_t changedMs = 0;  // when this value was seen first
  bool known = false;     // as in KeyChange
};
struct ProcessSnapshot {
  int32_t pid = 0;
  std::string name;               // empty if it is not known
  std::optional<int64_t> deadMs;  // when its death was seen, if it was by then
  std::map<std::string, KeyState> keys;
};

// The processes that were known at `bootMs`, by pid: those with at least one key, and the dead that the
// service has not forgotten. A value that was published at `bootMs` counts.
std::vector<ProcessSnapshot> processesAt(const Timeline& timeline, int64_t bootMs);

// The changes of one process, in the order of their times.
std::vector<KeyChange> changesOf(const Timeline& timeline, int32_t pid);

}  // namespace timeline
