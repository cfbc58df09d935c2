#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace test {

// The bytes that "07 05 01" spells; whitespace does not count.
inline std::string bytes(std::string_view hex) {
  std::string out;
  std::string digits;
  for (const char c : hex) {
    if (c == ' ' || c == '\n') continue;
    digits += c;
    if (digits.size() < 2) continue;
    out += static_cast<char>(std::stoi(digits, nullptr, 16));
    digits.clear();
  }
  return out;
}

inline std::string concat(std::initializer_list<std::string_view> parts) {
  std::string out;
  for (const std::string_view part : parts) out += part;
  return out;
}

}  // namespace test
