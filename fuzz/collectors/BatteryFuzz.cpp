#include <optional>

#include "BatteryCollector.h"
#include "Check.h"

namespace {

// Reads the number with scanf. A NUL ends scanf's text, so after white space it means "no digits", like any
// other character.
std::optional<int64_t> scanNumber(const std::string& text) {
  if (text.find_first_not_of(" \t\n\v\f\r") == std::string::npos) return std::nullopt;
  long value = 0;
  (void)std::sscanf(text.c_str(), "%ld", &value);
  return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  check(Torv::OS::Diagnostics::BatteryCollector::parseNumber(text) == scanNumber(text), "number");
  return 0;
}
