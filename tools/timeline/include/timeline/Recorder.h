// Writes a recording: a file of JSON lines (docs/recording.md) that fromRecording() reads.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include <android-base/result.h>
#include <android-base/unique_fd.h>

#include "timeline/Sources.h"

namespace timeline {

// What a recording is like. All of it stays the same from the first line to the last.
struct RecorderSettings {
  std::string path;     // made, or emptied if it is there
  int64_t everyMs = 0;  // between two answers; stands in the file for its readers
  uint64_t maxBytes = 0;
  std::string machine;
};

// Decides what of each answer is new and writes it, one write(2) for each line. Not thread-safe.
class Recorder {
 public:
  // Creates the file and writes its first line. Returns an error that names the file if that fails.
  [[nodiscard]] static android::base::Result<Recorder> create(const RecorderSettings& settings,
                                                              const Clocks& now);

  // True if the next answer should hold the system context: the first one, the first one after a gap, and
  // then as often as half of the shortest history passes.
  bool wantsContext(int64_t bootMs) const;

  // Writes what the answer changes: a full picture first of all, after a gap, and once a minute; changes
  // otherwise; the context if there is one. `dead` are the processes that do not run any more: those not told
  // before get a line. Returns an error that names the file if a write fails.
  [[nodiscard]] android::base::Result<void> add(const Answer& answer, const std::set<int32_t>& dead);
  // The programs' short names, for processes that were not named before.
  [[nodiscard]] android::base::Result<void> addNames(int64_t bootMs,
                                                     const std::map<int32_t, std::string>& names);
  // Nothing is seen from `bootMs` to the next answer. A gap in a gap is not written.
  [[nodiscard]] android::base::Result<void> addGap(int64_t bootMs, const std::string& reason);

 private:
  explicit Recorder(const RecorderSettings& settings) : mSettings(settings) {}

  // The states of all processes on one line, from which a reader can start. Drops old minutes first.
  android::base::Result<void> addPicture(const Answer& answer);
  // Nothing is written if no state has changed.
  android::base::Result<void> addChanges(const Answer& answer);
  android::base::Result<void> addDeaths(const Answer& answer, const std::set<int32_t>& dead);
  android::base::Result<void> writeLine(const Json::Value& line);
  // Does nothing while the file is below its size. Readers see the whole file before or after, never half.
  android::base::Result<void> dropOldestMinutes();

  RecorderSettings mSettings;
  android::base::unique_fd mFd;
  // The first line is kept, because it stays when the oldest minutes go.
  std::string mFirstLine;
  uint64_t mBytes = 0;
  std::vector<uint64_t> mMinutes;  // the offsets of the full pictures in the file
  int64_t mPictureMs = 0;          // the boot time of the last one
  int64_t mContextMs = 0;
  bool mStarting = true;  // nothing was written since the beginning, or since a gap
  bool mInGap = false;
  // What the file says so far, with which the next answer is compared.
  std::map<int32_t, Texts> mLast;
  std::set<int32_t> mDead;
  std::map<int32_t, std::string> mNames;
};

}  // namespace timeline
