#include <optional>

#include "BatteryCollector.h"
#include "Fuzz.h"

// Reads the number with scanf. A NUL ends scanf's text, so after white space it means "no digits", like any
// other character.
static std::optional<int64_t> scanNumber(const std::string& text) {
  if (text.find_first_not_of(" \t\n\v\f\r") == std::string::npos) return std::nullopt;
  long value = 0;
  (void)std::sscanf(text.c_str(), "%ld", &value);
  return value;
}

FUZZ(text) {
  check(Torv::OS::Diagnostics::BatteryCollector::parseNumber(text) == scanNumber(text), "number");
}
