#pragma once

#include <limits>
#include <memory>
#include <optional>

#include <cstdio>
#include <string>
#include <vector>

#include <binder/Parcel.h>

namespace test {

// The bytes in hexadecimal, a space after each word of four.
inline std::string hex(const uint8_t* data, size_t size) {
  std::string text;
  for (size_t i = 0; i < size; ++i) {
    char digits[3];
    snprintf(digits, sizeof(digits), "%02x", data[i]);
    if (i != 0 && i % 4 == 0) text += ' ';
    text += digits;
  }
  return text;
}

inline std::string hex(const android::Parcel& parcel) {
  return hex(parcel.data(), parcel.dataSize());
}

// What `write` puts into an empty parcel.
template <typename Write>
std::string hexOf(Write write) {
  android::Parcel parcel;
  write(parcel);
  return hex(parcel);
}

inline std::vector<uint8_t> bytes(const std::string& hexText) {
  std::vector<uint8_t> result;
  std::string digits;
  for (const char c : hexText) {
    if (c != ' ') digits += c;
    if (digits.size() == 2) {
      result.push_back(static_cast<uint8_t>(std::stoi(digits, nullptr, 16)));
      digits.clear();
    }
  }
  return result;
}

// Fills `parcel` as hex() would print it, to be read from the start.
inline void fill(android::Parcel& parcel, const std::string& hexText) {
  const auto data = bytes(hexText);
  parcel.setData(data.data(), data.size());
}

}  // namespace test
