#include "osutils/Telemetry.h"

namespace Torv::OS::Telemetry {

ParsedAtom parseAtom(const android::os::statsd::Atom& atom) {
  const google::protobuf::UnknownFieldSet& fields = atom.unknown_fields();
  for (int i = 0; i < fields.field_count(); i++) {
    const google::protobuf::UnknownField& field = fields.field(i);
    if (field.type() == google::protobuf::UnknownField::TYPE_LENGTH_DELIMITED) {
      return {field.number(), field.length_delimited()};
    }
  }
  return {};
}

}  // namespace Torv::OS::Telemetry
