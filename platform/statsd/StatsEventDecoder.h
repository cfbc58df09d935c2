#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace libstatsd {

// An event as the report of its atom needs it.
struct DecodedEvent {
  int64_t elapsedTimestampNs = 0;  // CLOCK_BOOTTIME
  int32_t atomId = 0;
  // The atom's protobuf message: field numbers are positions in the event, zero and empty values are written.
  std::string fields;
};

enum class DecodeResult {
  Decoded,
  WriterError,  // well-formed, but its writer gave the event up and sent why
  Malformed,
};

// Decodes an event: what follows log header and tag in a datagram. Refuses what the device's parser refuses:
// an element count outside 2 to 127, an unknown type, an annotation that is unknown or stands at the wrong
// element, a length past the end, bytes left over. Other annotations are skipped. `event` keeps its
// capacity; it is only meaningful when the result is Decoded.
[[nodiscard]] DecodeResult decodeStatsEvent(std::string_view bytes, DecodedEvent* event);

}  // namespace libstatsd
