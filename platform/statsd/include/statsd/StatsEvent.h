#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace libstatsd {

struct KeyValue {
  int32_t key = 0;
  std::variant<int32_t, int64_t, float, std::string_view> value;
};

struct AttributionNode {
  int32_t uid = 0;
  std::string_view tag;
};

// An event for statsd, built field by field in the order of the atom's field numbers, from 1 up, in the
// encoding of libstatssocket (StatsEventFormat.h says it). An event holds at most 125 fields and 4064 bytes;
// one that would hold more is given up: it becomes a notice of that, which the service counts. Not
// thread-safe.
class StatsEvent {
 public:
  // Stamped with the present boot time.
  explicit StatsEvent(int32_t atomId);
  StatsEvent(int32_t atomId, int64_t elapsedTimestampNs);

  StatsEvent& addInt32(int32_t value);
  StatsEvent& addInt64(int64_t value);
  StatsEvent& addFloat(float value);
  StatsEvent& addBool(bool value);
  StatsEvent& addString(std::string_view utf8);
  StatsEvent& addBytes(std::string_view bytes);
  StatsEvent& addKeyValues(std::span<const KeyValue> pairs);                // up to 127
  StatsEvent& addAttributionChain(std::span<const AttributionNode> nodes);  // up to 127

  int32_t atomId() const { return mAtomId; }
  // Everything added fits.
  bool complete() const { return mErrors == 0; }

  // The encoded event, without log header and tag.
  std::string encoded() const;

 private:
  StatsEvent& addField(uint8_t type, std::string_view value);

  int32_t mAtomId;
  int64_t mElapsedTimestampNs;
  std::string mFields;
  int mFieldCount = 0;
  uint32_t mErrors = 0;  // EventError bits
};

}  // namespace libstatsd
