#pragma once

#include <string>

namespace test {

// The bytes that "07 05 01" spells; spaces do not count.
inline std::string bytes(std::string hex) {
  std::erase(hex, ' ');
  std::string out;
  for (size_t at = 0; at < hex.size(); at += 2) out += char(std::stoi(hex.substr(at, 2), nullptr, 16));
  return out;
}

}  // namespace test
