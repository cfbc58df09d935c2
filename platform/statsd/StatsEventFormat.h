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

namespace libstatsd {

static_assert(std::endian::native == std::endian::little);

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
  Error = 15,            // i32 mask of EventError
};

// Why a writer gives up an event; it then sends the mask in place of the fields.
enum EventError : uint32_t {
  kOverflow = 0x4,
  kAttributionTooLong = 0x8,
  kTooManyKeyValues = 0x10,
  kTooManyFields = 0x200,
};

constexpr uint8_t kLogHeaderId = 5;
constexpr size_t kLogHeaderBytes = 11;
constexpr uint32_t kStatsEventTag = 0x73746174;
constexpr size_t kTagBytes = sizeof(kStatsEventTag);
constexpr size_t kMaxEventBytes = 4064;
// What a receiver has room for. Longer datagrams reach it cut.
constexpr size_t kMaxDatagramBytes = 4079;

constexpr int kMinElements = 2;  // the timestamp and the atom id
constexpr int kMaxElements = 127;

constexpr uint8_t kDropNoteType = 1;  // of the 64-bit number in a drop note
constexpr size_t kDropNoteBytes = kLogHeaderBytes + sizeof(int32_t) + 1 + sizeof(int64_t);

}  // namespace libstatsd
