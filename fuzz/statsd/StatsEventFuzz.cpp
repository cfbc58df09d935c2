// A whole datagram, from the socket to the store. An event that decodes must be kept with the bytes that the
// decoder made of it, and nothing else may be kept.
#include "AtomIntake.h"
#include "Fuzz.h"

FUZZ(datagram) {
  constexpr libstatsd::ConfigKey kKey{1000, 1};
  libstatsd::AtomIntake intake;
  check(intake.configure(kKey, {110010}, {"AID_SYSTEM"}), "the first configuration");
  intake.receive(datagram, false, 1000);
  const libstatsd::Report kept = intake.take(kKey);

  libstatsd::DecodedDatagram event;
  const bool isEvent = decodeDatagram(datagram, event) == libstatsd::DatagramKind::Event;
  check(kept.size() == (isEvent && event.atomId == 110010 ? 1 : 0), "events of the atom are kept");
  if (kept.empty()) return;
  check(kept[0].elapsedTimestampNs == event.elapsedTimestampNs, "time");
  check(kept[0].atom.unknown_fields().length_delimited() == event.fields, "fields");
}
