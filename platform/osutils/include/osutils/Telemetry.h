#pragma once

#include <cstdint>
#include <string_view>

#include <statsd/Atom.h>

namespace Torv::OS::Telemetry {

// The vendor atom that an atom report carries.
struct ParsedAtom {
  int32_t id = 0;            // atom id; 0 where the report carries no atom
  std::string_view payload;  // the serialised vendor message; lives as long as the Atom
};

// Takes a report's Atom apart: the id is the number of the one field that it holds, the payload that field's
// bytes. Does not fail; an atom without a length-delimited field gives id 0 and no payload.
ParsedAtom parseAtom(const android::os::statsd::Atom& atom);

}  // namespace Torv::OS::Telemetry
