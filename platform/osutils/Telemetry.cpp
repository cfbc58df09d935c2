#include "osutils/Telemetry.h"

namespace Torv::OS::Telemetry {

ParsedAtom parseAtom(const android::os::statsd::Atom& atom) {
  return {atom.unknown_fields().number(), atom.unknown_fields().length_delimited()};
}

}  // namespace Torv::OS::Telemetry
