// A report about one process as a single HTML page: charts, tables and the raw JSON, in one file without
// network.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <android-base/result.h>

#include "timeline/Timeline.h"

namespace report {

// What a page is to be about.
struct Choice {
  // The process that the report is about. Empty: the one that died last; if none died, the page is about the
  // machine alone.
  std::optional<int32_t> pid;
  int64_t lastMs = 120'000;  // how much time before the end the page shows
};

// Returns the page, or an error if the timeline knows nothing of the chosen process. The page ends at the
// death of the process, or at the end of the timeline if it lives. Texts of processes appear as text only:
// control characters are written as escapes, and none becomes markup or script. Two pages of one timeline
// differ in the number that permits the page's own scripts.
[[nodiscard]] android::base::Result<std::string> page(const timeline::Timeline& timeline,
                                                      const Choice& choice);

}  // namespace report
