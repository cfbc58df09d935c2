// What a page shows of a timeline.
#pragma once

#include <cstdint>
#include <optional>

#include "timeline/Timeline.h"

namespace report {

// A view of a timeline: it must not outlive the timeline that it refers to. All times are of the boot clock.
struct Scope {
  const timeline::Timeline& timeline;
  std::optional<int32_t> pid;
  const timeline::Death* death = nullptr;  // of `pid`, a part of the timeline; null if it did not die
  int64_t beginMs = 0;
  int64_t endMs = 0;

  bool holds(int64_t bootMs) const { return bootMs >= beginMs && bootMs <= endMs; }
  // A time as the page counts it: milliseconds before the end, zero or negative.
  int64_t offset(int64_t bootMs) const { return bootMs - endMs; }
};

}  // namespace report
