#pragma once

#include "parcel/ParcelHeader.h"

#include <string>
#include <vector>

namespace test {

// The bytes of the parcel in hexadecimal, with a space after each word of four bytes.
inline std::string hex(const android::Parcel& parcel) {
  std::string text;
  for (size_t i = 0; i < parcel.dataSize(); ++i) {
    if (i != 0 && i % 4 == 0) text += ' ';
    for (const int shift : {4, 0}) text += "0123456789abcdef"[parcel.data()[i] >> shift & 0xf];
  }
  return text;
}

// The bytes that `write` puts into an empty parcel.
template <typename Write>
std::string hexOf(Write write) {
  android::Parcel parcel;
  write(parcel);
  return hex(parcel);
}

// A parcel with the bytes that hex() prints as `text`; its position is at the start.
class Filled : public android::Parcel {
 public:
  explicit Filled(const std::string& text) {
    std::vector<uint8_t> bytes;
    for (size_t at = 0; at < text.size(); at += text[at] == ' ' ? 1 : 2) {
      if (text[at] != ' ') bytes.push_back(static_cast<uint8_t>(std::stoi(text.substr(at, 2), nullptr, 16)));
    }
    setData(bytes.data(), bytes.size());
  }
};

}  // namespace test
