// A whole datagram, from the socket to the store. An event that decodes must be kept with the bytes that the
// decoder made of it, and nothing else may be kept.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "AtomIntake.h"

using namespace libstatsd;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view datagram(reinterpret_cast<const char*>(data), size);
  constexpr ConfigKey kKey{1000, 1};
  AtomIntake intake;
  if (!intake.configure(kKey, {110010}, {"AID_SYSTEM"})) abort();
  intake.receive(datagram, false, 1000);
  const Report kept = intake.take(kKey);

  DecodedDatagram event;
  const bool wanted = decodeDatagram(datagram, event) == DatagramKind::Event && event.atomId == 110010;
  if (kept.size() != (wanted ? 1 : 0)) abort();
  if (kept.empty()) return 0;
  if (kept[0].elapsedTimestampNs != event.elapsedTimestampNs) abort();
  if (kept[0].atom.unknown_fields().length_delimited() != event.fields) abort();
  return 0;
}
