// A whole datagram, from the socket to the store. An event that decodes must be kept with the bytes that the
// decoder made of it, and nothing else may be kept.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "AtomIntake.h"
#include "StatsEventFormat.h"

using namespace libstatsd;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view datagram(reinterpret_cast<const char*>(data), size);
  constexpr ConfigKey kKey{1000, 1};
  AtomIntake intake(1000, {});
  intake.configure(kKey, {{110010}, {"AID_SYSTEM"}});
  intake.receive(datagram, 1000);
  const std::vector<AtomRecord> kept = intake.take(kKey);

  StatsdStatus status;
  intake.describe(status);
  DecodedEvent event;
  constexpr size_t kEventAt = kLogHeaderBytes + kTagBytes;
  const bool decoded = status.counters.dropNotes == 0 && size >= kEventAt &&
                       decodeStatsEvent(datagram.substr(kEventAt), &event) == DecodeResult::Decoded;
  if (kept.size() != (decoded && event.atomId == 110010 ? 1 : 0)) abort();
  if (kept.empty()) return 0;
  if (kept[0].elapsedTimestampNs != event.elapsedTimestampNs || kept[0].payload != event.fields) abort();
  return 0;
}
