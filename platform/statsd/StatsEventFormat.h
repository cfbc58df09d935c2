// The datagram that carries an atom to statsd, by libstatssocket of API 30 to 32. All integers little-endian,
// nothing aligned:
//
//   05 <u16 tid> <u32 wall-clock seconds> <u32 nanoseconds>    log header, which the receiver skips
//   74 61 74 73                                                tag, which it skips too
//   07 <u8 element count> 01 <i64 timestamp> 00 <i32 atom id> <field>...
//
// An element begins with a byte whose low nibble is its type and whose high nibble counts the annotations
// that follow its value, each <u8 id> <u8 type: Bool or Int32> <value>.
//
// A drop note takes the place of tag and event: <i32 negative errno> 01 <i64: atom id << 32 | atoms lost>.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace libstatsd {

static_assert(std::endian::native == std::endian::little);

// Name of the socket in the runtime directory that takes the datagrams.
inline constexpr char kAtomSocket[] = "statsdw";

enum class ElementType : uint8_t {
  Int32 = 0,
  Int64 = 1,
  String = 2,  // i32 length, bytes
  Float = 4,
  Bool = 5,       // one byte
  ByteArray = 6,  // as a string
  Object = 7,
  KeyValuePairs = 8,     // u8 count, each: i32 key, type byte, value
  AttributionChain = 9,  // u8 count, each: i32 uid, string
  Error = 15,            // i32 mask of errors, in place of all fields: the writer has given the event up
};

constexpr uint32_t kOverflowError = 0x4;  // the event would be longer than kMaxEventBytes

constexpr uint8_t kLogHeaderId = 5;
constexpr size_t kLogHeaderBytes = 11;
constexpr uint32_t kStatsEventTag = 0x73746174;
constexpr size_t kMaxEventBytes = 4064;
// What a receiver has room for: log header, tag and event. Longer datagrams reach it cut.
constexpr size_t kMaxDatagramBytes = kLogHeaderBytes + sizeof(kStatsEventTag) + kMaxEventBytes;

constexpr int kMinElements = 2;  // the timestamp and the atom id
constexpr int kMaxElements = 127;

constexpr uint8_t kDropNoteType = 1;  // of the 64-bit number in a drop note

// Appends a number or an enumerator to `out`, as it lies in memory.
template <typename T>
void append(std::string& out, T value) {
  out.append(reinterpret_cast<const char*>(&value), sizeof(value));
}

enum class DatagramKind {
  Event,
  GivenUp,   // a well-formed event, but its writer gave it up and sent why
  DropNote,  // its writer tells of events that it could not send
  Malformed,
};

// What a datagram holds, as far as its kind has it.
struct DecodedDatagram {
  int64_t elapsedTimestampNs = 0;  // Event: CLOCK_BOOTTIME, as the writer stamped it
  int32_t atomId = 0;              // Event, GivenUp
  // Event: the atom as a protobuf message. The field numbers are the positions in the event; zero and empty
  // values are written. In statsd's one departure from protobuf, a negative int32 takes 5 bytes, not 10.
  std::string fields;
  uint32_t lost = 0;  // DropNote: how many events were lost
};

// Decodes a whole datagram into `decoded`, whose string keeps its capacity. Refuses as Malformed what the
// device's parser refuses: an element count outside 2 to 127, an unknown type, an annotation that is unknown
// or stands at the wrong element, a length past the end, bytes left over. Other annotations are skipped.
[[nodiscard]] DatagramKind decodeDatagram(std::string_view datagram, DecodedDatagram& decoded);

}  // namespace libstatsd
