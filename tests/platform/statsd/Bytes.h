#pragma once

#include "support/Hex.h"

namespace libstatsd {

using test::bytes;

// A datagram with the event that `hex` spells.
inline std::string datagram(const std::string& hex) {
  return bytes("05 3412 80005962 00000000 74617473" + hex);
}

}  // namespace libstatsd
