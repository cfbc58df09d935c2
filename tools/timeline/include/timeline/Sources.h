// Timelines from what the service answered: live, in a crash report, or in a recording.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <android-base/result.h>
#include <json/value.h>

#include "timeline/Timeline.h"

namespace timeline {

using Texts = std::map<std::string, std::string>;

// What the service knew at one moment.
struct Answer {
  Clocks clocks;                       // read right after the answer came
  std::map<int32_t, Texts> processes;  // by pid: its states
  // The system context: histories as the JSON texts that the service gives, everything else as it is. Empty
  // if it was not asked for in this round.
  Texts context;
  std::map<std::string, Texts> globals;  // by namespace; each value is the service's {"dt_ms": .., "v": ..}

  bool operator==(const Answer&) const = default;
};

// What became of keys, by pid: the new value, or nothing if the key is no longer known.
using Changes = std::map<int32_t, std::map<std::string, std::optional<std::string>>>;

// What turns the states `before` into the states `after`.
Changes difference(const std::map<int32_t, Texts>& before, const std::map<int32_t, Texts>& after);

// Collects answers, in the order of their times, into one timeline. A live view keeps one and adds to it; the
// functions below are made of it. Not thread-safe.
class Builder {
 public:
  Builder();
  Builder(Builder&&) noexcept;
  Builder& operator=(Builder&&) noexcept;
  ~Builder();

  // The states of all processes: what is new, different or gone since the last time becomes changes.
  void addStates(const Clocks& clocks, const std::map<int32_t, Texts>& processes);
  // The same, told as changes to the states of the last time.
  void addChanges(int64_t bootMs, const Changes& changes);
  // The system context and the global states: samples that are new since the last time are appended.
  void addContext(const Clocks& clocks, const Texts& context, const std::map<std::string, Texts>& globals);
  // Both, the context only if the answer has one.
  void add(const Answer& answer);
  // A process was found dead. Call it once for each death.
  void addDeath(const Death& death);
  // From the last answer to the next one nothing is seen. Counts once until the next answer.
  void addGap(int64_t fromMs, const std::string& reason);
  // The short name of the program that the process runs. A later name of the same pid replaces it.
  void setName(int32_t pid, const std::string& name);
  // The machine that the timeline is of, as text for people.
  void setMachine(const std::string& machine);

  // Forgets the points, changes, deaths and gaps before `bootMs`, but for the values that still held then and
  // the deaths of processes that the service still remembered. A live view calls it now and then to stay
  // small.
  void dropBefore(int64_t bootMs);

  // The timeline so far, without its `document`. The reference is valid as long as the builder is; later
  // calls change what it refers to.
  const Timeline& timeline() const;
  // The timeline with its `document`. The builder must not be used afterwards.
  Timeline finish() &&;

 private:
  void addGlobals(const Clocks& clocks, const std::string& nameSpace, const Texts& states);
  void addGlobal(const GlobalChange& change);

  struct State;
  std::unique_ptr<State> mState;
};

// From one answer. Every value has `known` set, because one answer tells no change.
Timeline fromAnswer(const Answer& answer);

// From the JSON of a crash report (docs/crash_report.schema.json). Returns an error that names the member if
// one is missing or has another type.
[[nodiscard]] android::base::Result<Timeline> fromReport(const Json::Value& report);

// Puts what only a crash reporter knows over a recording of the same time: the death with its signal and
// program, the system context (with the build) as it was then, and the report itself as the `document`.
//
// Returns an error if `report` is no crash report, or if its clocks say that it comes from another boot than
// the recording.
//
// If the recorder has seen the death too, the earlier of both times counts, because both looked after it
// happened. What the recorder saw of the process between the report's death and its own was published before,
// so it is dated with the death.
[[nodiscard]] android::base::Result<Timeline> withReport(Timeline recorded, const Json::Value& report);

// From a recording (docs/recording.md). Returns an error if the first line is not that of a recording or has
// a version that this program does not know, or if a line in the middle is damaged, with the line's number. A
// last line that was cut is ignored.
[[nodiscard]] android::base::Result<Timeline> fromRecording(std::string_view text);

// From a file that holds a recording or a crash report, whichever it is. Returns an error that names the
// file.
[[nodiscard]] android::base::Result<Timeline> fromFile(const std::string& path);

// The recording in the file `path`, with the crash report in the file `reportPath` over it (withReport).
// Returns an error that names the file that cannot be read or is not what it should be.
[[nodiscard]] android::base::Result<Timeline> fromFiles(const std::string& path,
                                                        const std::string& reportPath);

// The answer as the JSON of a crash report without what only a reporter knows (signal, program).
Json::Value toDocument(const Answer& answer);

}  // namespace timeline
