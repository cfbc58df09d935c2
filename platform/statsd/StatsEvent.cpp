#include "statsd/StatsEvent.h"

#include <ctime>

#include "StatsEventFormat.h"

namespace libstatsd {
namespace {

constexpr size_t kMaxNested = 127;
constexpr size_t kHeadBytes = 2 + 1 + sizeof(int64_t) + 1 + sizeof(int32_t);

int64_t bootTimeNs() {
  timespec time{};
  clock_gettime(CLOCK_BOOTTIME, &time);
  return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

template <typename T>
void append(std::string& out, T value) {
  out.append(reinterpret_cast<const char*>(&value), sizeof(value));
}

void appendString(std::string& out, std::string_view text) {
  append(out, static_cast<int32_t>(text.size()));
  out.append(text);
}

template <typename T>
std::string bytesOf(T value) {
  std::string bytes;
  append(bytes, value);
  return bytes;
}

struct AppendPairValue {
  std::string& out;

  void operator()(int32_t value) const { appendTyped(ElementType::Int32, value); }
  void operator()(int64_t value) const { appendTyped(ElementType::Int64, value); }
  void operator()(float value) const { appendTyped(ElementType::Float, value); }
  void operator()(std::string_view value) const {
    append(out, ElementType::String);
    appendString(out, value);
  }

  template <typename T>
  void appendTyped(ElementType type, T value) const {
    append(out, type);
    append(out, value);
  }
};

}  // namespace

StatsEvent::StatsEvent(int32_t atomId) : StatsEvent(atomId, bootTimeNs()) {}

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
  std::string value;
  appendString(value, utf8);
  return addField(static_cast<uint8_t>(ElementType::String), value);
}

StatsEvent& StatsEvent::addBytes(std::string_view bytes) {
  std::string value;
  appendString(value, bytes);
  return addField(static_cast<uint8_t>(ElementType::ByteArray), value);
}

StatsEvent& StatsEvent::addKeyValues(std::span<const KeyValue> pairs) {
  if (pairs.size() > kMaxNested) mErrors |= kTooManyKeyValues;
  std::string value;
  append(value, static_cast<uint8_t>(pairs.size()));
  for (const KeyValue& pair : pairs) {
    append(value, pair.key);
    std::visit(AppendPairValue{value}, pair.value);
  }
  return addField(static_cast<uint8_t>(ElementType::KeyValuePairs), value);
}

StatsEvent& StatsEvent::addAttributionChain(std::span<const AttributionNode> nodes) {
  if (nodes.size() > kMaxNested) mErrors |= kAttributionTooLong;
  std::string value;
  append(value, static_cast<uint8_t>(nodes.size()));
  for (const AttributionNode& node : nodes) {
    append(value, node.uid);
    appendString(value, node.tag);
  }
  return addField(static_cast<uint8_t>(ElementType::AttributionChain), value);
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
