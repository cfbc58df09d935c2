// The JSON texts in the service's answers: histories of the system's state, and values with an age.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "timeline/Timeline.h"

namespace timeline {

// A history as the service reports it, oldest sample first, times in milliseconds of the monotonic clock.
struct History {
  struct Sample {
    int64_t monotonicMs = 0;
    std::map<std::string, double> values;  // by metric; empty if the service could not read the source
  };
  std::vector<Sample> samples;
};

// Returns nullopt if the text is no history. Samples without a plausible age are left out.
std::optional<History> parseHistory(const std::string& text);

struct AgedText {
  int64_t ageMs = 0;
  std::string value;
};

// Returns nullopt if the text is not of the form {"dt_ms": 1032, "v": "the value"}.
std::optional<AgedText> parseAged(const std::string& text);

// One value of one metric, or a gap.
struct Sample {
  int64_t bootMs = 0;
  std::string metric;
  Unit unit = Unit::None;
  std::optional<double> value;
};

// Follows one history through successive reports, which overlap: every sample is taken once.
class HistoryReader {
 public:
  // The samples that no earlier report held, in the order of their times. `clocks` were read at the report;
  // they turn its monotonic times into boot times.
  std::vector<Sample> newSamples(const History& history, const Clocks& clocks);

 private:
  void addSample(const History::Sample& sample, int64_t bootMs, std::vector<Sample>& samples);

  std::optional<int64_t> mLastMs;  // monotonic time of the last sample that was taken
  int64_t mPeriodMs = 0;           // the usual time between two samples; 0 until two have come
  std::map<std::string, Unit>
      mMetrics;  // all that were ever seen, under the names that they have in a series
  std::map<std::string, double> mLastTotals;  // the stall totals of the last sample, if it had values
};

}  // namespace timeline
