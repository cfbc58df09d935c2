#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace libstatsd {

// An event for statsd, built field by field in the order of the atom's field numbers, from 1 up, in the
// encoding of libstatssocket. An event holds at most 125 fields and 4064 bytes. If it would hold more it is
// given up: the encoded event then only says so, and the service counts it. Not thread-safe.
class StatsEvent {
 public:
  // Stamped with the present boot time.
  explicit StatsEvent(int32_t atomId);
  // `elapsedTimestampNs` is a reading of CLOCK_BOOTTIME in nanoseconds.
  StatsEvent(int32_t atomId, int64_t elapsedTimestampNs);

  // Each adds one field and returns this event. The event keeps a copy of a text.
  StatsEvent& addInt32(int32_t value);
  StatsEvent& addInt64(int64_t value);
  StatsEvent& addFloat(float value);
  StatsEvent& addBool(bool value);
  StatsEvent& addString(std::string_view utf8);
  StatsEvent& addBytes(std::string_view bytes);

  int32_t atomId() const { return mAtomId; }
  // Returns false if the event has been given up.
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
