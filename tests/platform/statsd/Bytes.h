#pragma once

#include <string>

namespace libstatsd {

// The bytes that "07 05 01" spells; spaces do not count.
inline std::string bytes(std::string hex) {
  std::erase(hex, ' ');
  std::string out;
  for (size_t at = 0; at < hex.size(); at += 2) out += char(std::stoi(hex.substr(at, 2), nullptr, 16));
  return out;
}

// A datagram with the event that `hex` spells.
inline std::string datagram(const std::string& hex) {
  return bytes("05 3412 80005962 00000000 74617473" + hex);
}

}  // namespace libstatsd
