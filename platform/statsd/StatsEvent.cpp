#include "statsd/StatsEvent.h"

#include "AppendBytes.h"
#include "StatsEventFormat.h"
#include "base/Clock.h"

namespace libstatsd {
namespace {

constexpr size_t kHeadBytes = 2 + 1 + sizeof(int64_t) + 1 + sizeof(int32_t);

template <typename T>
std::string bytesOf(T value) {
  std::string bytes;
  append(bytes, value);
  return bytes;
}

std::string withLength(std::string_view text) {
  return bytesOf(static_cast<int32_t>(text.size())).append(text);
}

}  // namespace

StatsEvent::StatsEvent(int32_t atomId) : StatsEvent(atomId, Torv::Base::bootTimeNs()) {}

StatsEvent::StatsEvent(int32_t atomId, int64_t elapsedTimestampNs)
    : mAtomId(atomId), mElapsedTimestampNs(elapsedTimestampNs) {}

StatsEvent& StatsEvent::addInt32(int32_t value) {
  return addField(static_cast<uint8_t>(ElementType::Int32), bytesOf(value));
}

StatsEvent& StatsEvent::addInt64(int64_t value) {
  return addField(static_cast<uint8_t>(ElementType::Int64), bytesOf(value));
}

StatsEvent& StatsEvent::addFloat(float value) {
  return addField(static_cast<uint8_t>(ElementType::Float), bytesOf(value));
}

StatsEvent& StatsEvent::addBool(bool value) {
  return addField(static_cast<uint8_t>(ElementType::Bool), bytesOf(static_cast<uint8_t>(value)));
}

StatsEvent& StatsEvent::addString(std::string_view utf8) {
  return addField(static_cast<uint8_t>(ElementType::String), withLength(utf8));
}

StatsEvent& StatsEvent::addBytes(std::string_view bytes) {
  return addField(static_cast<uint8_t>(ElementType::ByteArray), withLength(bytes));
}

StatsEvent& StatsEvent::addField(uint8_t type, std::string_view value) {
  if (kHeadBytes + mFields.size() + sizeof(type) + value.size() > kMaxEventBytes) mErrors |= kOverflow;
  if (mFieldCount == kMaxElements - kMinElements) mErrors |= kTooManyFields;
  if (mErrors != 0) return *this;
  append(mFields, type);
  mFields += value;
  mFieldCount++;
  return *this;
}

std::string StatsEvent::encoded() const {
  const int fields = complete() ? mFieldCount : 1;
  std::string out;
  out.reserve(kHeadBytes + mFields.size());
  append(out, ElementType::Object);
  append(out, static_cast<uint8_t>(kMinElements + fields));
  append(out, ElementType::Int64);
  append(out, mElapsedTimestampNs);
  append(out, ElementType::Int32);
  append(out, mAtomId);
  if (complete()) return out + mFields;
  append(out, ElementType::Error);
  append(out, mErrors);
  return out;
}

}  // namespace libstatsd
