#pragma once

#include <cstdint>
#include <string>

namespace Torv::OS::Diagnostics {

// One value that was published: of a state of a process, or of a global namespace.
struct ApplicationState {
  bool global = false;    // true: it belongs to `nameSpace`; false: to `pid`
  std::string nameSpace;  // empty unless `global`
  int32_t pid = 0;        // 0 if `global`
  std::string key;        // the state's name; publishers choose it
  std::string value;
  int64_t timestamp = 0;  // nanoseconds, CLOCK_BOOTTIME, as statsd reports it with the atom
};

}  // namespace Torv::OS::Diagnostics
