#pragma once

#include <string>

namespace libstatsd {

// Appends the value as it lies in memory. The formats here are little-endian, as the host is.
template <typename T>
void append(std::string& out, T value) {
  out.append(reinterpret_cast<const char*>(&value), sizeof(value));
}

}  // namespace libstatsd
