#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace Torv::OS::Diagnostics {

// The lines of /proc/meminfo that are reported:
//   MemTotal:       24684092 kB
// (proc(5)). The first three are required for the share of memory that is available.
struct MemInfo {
  static constexpr std::array<std::string_view, 5> kNames = {"MemTotal", "MemFree", "MemAvailable", "Buffers",
                                                             "Cached"};
  static constexpr size_t kRequired = 3;

  std::array<std::optional<uint32_t>, kNames.size()> valuesKb;  // as kNames; empty where no line gave it
  size_t requiredFound = 0;    // lines that gave one of the first three; a name given twice counts twice
  size_t additionalFound = 0;  // the same of the others
};

// Reads the text line by line until each of the five is found. The last character of a line's first word is
// taken for the colon.
MemInfo parseMemInfo(std::string_view text);

// Empty where not all that it takes was found, or the total is 0.
std::optional<double> memAvailablePercent(const MemInfo& info);

}  // namespace Torv::OS::Diagnostics
