#pragma once

#include <cstdint>
#include <string_view>

#include <statsd/Atom.h>

namespace Torv::OS::Telemetry {

// The vendor atom that an atom report carries.
struct ParsedAtom {
  int32_t id = 0;            // the atom's id; 0 if the report carries no atom
  std::string_view payload;  // the serialised vendor message; valid as long as the Atom is not changed
};

// Returns the atom that a report's Atom carries: the id is the number of its one field, the payload is that
// field's bytes. Returns id 0 and no payload if it has no length-delimited field. Copies nothing.
// Thread-safe as long as nobody changes the Atom.
inline ParsedAtom parseAtom(const android::os::statsd::Atom& atom) {
  return {atom.unknown_fields().number(), atom.unknown_fields().length_delimited()};
}

}  // namespace Torv::OS::Telemetry
