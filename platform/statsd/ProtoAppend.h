// Protobuf wire format appended to a string, with statsd's one departure from the standard: a negative 32-bit
// integer takes 5 bytes and not 10.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace libstatsd {

enum class WireType : uint32_t { Varint = 0, LengthDelimited = 2, Fixed32 = 5 };

inline void appendVarint(std::string& out, uint64_t value) {
  for (; value >= 0x80; value >>= 7) out.push_back(static_cast<char>(value | 0x80));
  out.push_back(static_cast<char>(value));
}

inline uint32_t protoTag(int32_t field, WireType type) {
  return static_cast<uint32_t>(field) << 3 | static_cast<uint32_t>(type);
}

inline void appendInt32(std::string& out, int32_t field, int32_t value) {
  appendVarint(out, protoTag(field, WireType::Varint));
  appendVarint(out, static_cast<uint32_t>(value));
}

inline void appendInt64(std::string& out, int32_t field, int64_t value) {
  appendVarint(out, protoTag(field, WireType::Varint));
  appendVarint(out, static_cast<uint64_t>(value));
}

inline void appendFloat(std::string& out, int32_t field, float value) {
  appendVarint(out, protoTag(field, WireType::Fixed32));
  char bytes[sizeof(value)];
  memcpy(bytes, &value, sizeof(value));
  out.append(bytes, sizeof(bytes));
}

inline void appendBytes(std::string& out, int32_t field, std::string_view bytes) {
  appendVarint(out, protoTag(field, WireType::LengthDelimited));
  appendVarint(out, bytes.size());
  out.append(bytes);
}

}  // namespace libstatsd
