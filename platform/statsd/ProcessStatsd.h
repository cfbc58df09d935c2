#pragma once

#include <string>
#include <variant>

#include "Statsd.h"

namespace libstatsd {

// The process's statsd for a runtime directory, started at the first call; it lives as long as the process.
// On failure a sentence that says why. Thread-safe, as the other.
[[nodiscard]] std::variant<Statsd*, std::string> statsdOf(const std::string& directory);

// The same where it has been started; else null.
Statsd* runningStatsdOf(const std::string& directory);

}  // namespace libstatsd
