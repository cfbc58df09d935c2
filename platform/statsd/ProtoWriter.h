#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace libstatsd {

// Writes protobuf fields into a string, in the wire format with statsd's one departure from the standard: a
// negative 32-bit integer takes 5 bytes, not 10. The writer checks no room; the caller gives enough.
class ProtoWriter {
 public:
  // Writes from the start of `out`, at most `room` bytes. `out` must outlive the writer.
  ProtoWriter(std::string& out, size_t room) : mOut(out) {
    mOut.resize(room);
    mAt = mOut.data();
  }

  // Cuts the string to what was written.
  void finish() { mOut.resize(static_cast<size_t>(mAt - mOut.data())); }

  void putInt32(int field, int32_t value) {
    putTag(field, kVarint);
    putVarint(static_cast<uint32_t>(value));
  }
  void putInt64(int field, int64_t value) {
    putTag(field, kVarint);
    putVarint(static_cast<uint64_t>(value));
  }
  void putFloat(int field, float value) {
    putTag(field, kFixed32);
    putRaw(&value, sizeof(value));
  }
  void putBytes(int field, std::string_view bytes) {
    putTag(field, kLengthDelimited);
    putVarint(bytes.size());
    putRaw(bytes.data(), bytes.size());
  }

  // What is put between the two calls becomes a message, the value of `field`.
  char* beginMessage() const { return mAt; }
  void endMessage(int field, char* begin) {
    const std::string content(begin, mAt);
    mAt = begin;
    putBytes(field, content);
  }

 private:
  enum WireType : uint32_t { kVarint = 0, kLengthDelimited = 2, kFixed32 = 5 };

  void putTag(int field, WireType type) { putVarint(static_cast<uint32_t>(field) << 3 | type); }
  void putVarint(uint64_t value) {
    for (; value >= 0x80; value >>= 7) *mAt++ = static_cast<char>(value | 0x80);
    *mAt++ = static_cast<char>(value);
  }
  void putRaw(const void* bytes, size_t size) {
    if (size != 0) memcpy(mAt, bytes, size);
    mAt += size;
  }

  std::string& mOut;
  char* mAt;
};

}  // namespace libstatsd
