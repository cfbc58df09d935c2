// How a value is reported with its age.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <time.h>

namespace Torv::OS::Diagnostics {

// Returns the time of CLOCK_BOOTTIME (which runs on in suspend) in milliseconds. Logs an error and returns 0
// if the clock cannot be read.
int64_t bootTimeMs(int (*readClock)(clockid_t, timespec*) = &clock_gettime);

// Returns {"dt_ms":<nowMs less the value's time>,"v":<value>} as compact JSON, or nullopt if the value's time
// is after `nowMs`. Both times are of CLOCK_BOOTTIME.
std::optional<std::string> agedValue(int64_t timestampNs, std::string_view value, int64_t nowMs);

}  // namespace Torv::OS::Diagnostics
