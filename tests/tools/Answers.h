// Answers of a service that does not run, for tests of the timeline.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "timeline/Sources.h"

namespace answers {

// A machine that was suspended for 500 ms, and booted in 2020.
inline timeline::Clocks clocksAt(int64_t bootMs) {
  return {bootMs, bootMs - 500, 1'600'000'000'000 + bootMs};
}

// The text of a history: samples (monotonic time, members of "v"), oldest first, reported at `reportMs`.
inline std::string history(int64_t reportMs, const std::vector<std::pair<int64_t, std::string>>& samples) {
  std::string series;
  for (auto sample = samples.rbegin(); sample != samples.rend(); ++sample) {
    series += fmt::format("{}{{\"dt_ms\": {}, \"v\": {{{}}}}}", series.empty() ? "" : ", ",
                          reportMs - sample->first, sample->second);
  }
  return fmt::format(R"({{"report_time_ms": {}, "version": "1.0", "time_series": [{}]}})", reportMs, series);
}

}  // namespace answers
