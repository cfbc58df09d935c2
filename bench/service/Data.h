// What the service holds while it is measured.
#pragma once

#include <string>

namespace servicebench {

inline constexpr int kProcesses = 300;
inline constexpr int kKeys = 20;
inline constexpr int kFirstPid = 1'000'000;  // no such processes; nobody looks for them within the first 30 s
inline constexpr char kValue[] = "a value of today";

inline std::string keyName(int number) {
  return "key number " + std::to_string(number);
}

}  // namespace servicebench
