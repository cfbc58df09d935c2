// The states that the service holds during the measurements.
#pragma once

#include <string>

namespace servicebench {

inline constexpr int kProcesses = 300;
inline constexpr int kKeys = 20;
// No such processes exist. The service looks for them 30 s after its start, at its first clean-up.
inline constexpr int kFirstPid = 1'000'000;
inline constexpr char kValue[] = "a value of today";

inline std::string keyName(int number) {
  return "key number " + std::to_string(number);
}

}  // namespace servicebench
