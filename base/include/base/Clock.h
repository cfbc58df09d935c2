// Readings of the kernel's clocks as single numbers.
#pragma once

#include <cstdint>

#include <time.h>

namespace Torv::Base {

// The time in nanoseconds. `time` is a clock reading or a duration, so tv_nsec is below 1e9.
constexpr int64_t toNanoseconds(const timespec& time) {
  return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

// The same in whole milliseconds, rounded towards zero.
constexpr int64_t toMilliseconds(const timespec& time) {
  return toNanoseconds(time) / 1'000'000;
}

// The same in the milliseconds of reports: truncated twice, to microseconds in a double and then to
// milliseconds. After some thirty years the double rounds up. `time` must not be negative.
constexpr uint64_t toReportMilliseconds(const timespec& time) {
  const double us = static_cast<double>(toNanoseconds(time)) * 0.001;
  return static_cast<uint64_t>(us) / 1000;
}

// CLOCK_BOOTTIME in nanoseconds: the time since boot, including the time in suspend. Atoms and states carry
// it.
inline int64_t bootTimeNs() {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return toNanoseconds(now);
}

}  // namespace Torv::Base
