#pragma once

#include <string>

#include <android-base/result.h>

#include "Statsd.h"

namespace libstatsd {

// The process's statsd for a runtime directory, started at the first call; it lives as long as the process.
// Returns what Statsd::start() returns if that fails. Thread-safe, as the other.
[[nodiscard]] android::base::Result<Statsd*> statsdOf(const std::string& directory);

// The same where it has been started; else null.
Statsd* runningStatsdOf(const std::string& directory);

}  // namespace libstatsd
