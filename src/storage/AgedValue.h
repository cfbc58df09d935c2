// How a value is reported with its age.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <time.h>

#include "storage/State.h"

namespace Torv::OS::Diagnostics {

// Milliseconds of the boot-time clock, which keeps running in suspend. A clock that cannot be read is logged
// and taken as 0.
int64_t bootTimeMs(int (*readClock)(clockid_t, timespec*) = &clock_gettime);

// {"dt_ms":<nowMs less the entry's time>,"v":<value>}, or nothing where the entry is ahead of `nowMs`.
std::optional<std::string> agedValue(const State::Entry& entry, int64_t nowMs);

}  // namespace Torv::OS::Diagnostics
