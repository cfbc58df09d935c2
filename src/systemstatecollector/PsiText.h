#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace Torv::OS::Diagnostics {

// One line of a file under /proc/pressure:
//   some avg10=0.12 avg60=0.34 avg300=0.05 total=6227413
// (Documentation/accounting/psi.rst of the kernel). What a line does not have is empty or 0.
struct PsiLine {
  std::array<char, 5> type{};  // "some" or "full", closed by a NUL
  float avg10 = 0;             // percent of the last 10, 60 and 300 seconds
  float avg60 = 0;
  float avg300 = 0;
  uint64_t total = 0;  // microseconds of stall since boot
};

// Reads `line` as sscanf's "%4s avg10=%f avg60=%f avg300=%f total=%lu" does, up to a NUL byte.
PsiLine parsePsiLine(std::string_view line);

}  // namespace Torv::OS::Diagnostics
