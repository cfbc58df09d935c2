#pragma once

#include <cstdint>
#include <string>

namespace Torv::OS::Diagnostics {

// One observation of the statsd feed.
struct ApplicationState {
  bool global = false;    // of a namespace rather than of a process
  std::string nameSpace;  // of a global state, else empty
  int32_t pid = 0;        // of a process's state, else 0
  std::string key;
  std::string value;
  int64_t timestamp = 0;  // nanoseconds, CLOCK_BOOTTIME, as statsd reports it with the atom
};

}  // namespace Torv::OS::Diagnostics
