// android::os::statsd::Atom, the protobuf message that carries one atom in statsd's reports. A vendor's atom
// is the one entry of its unknown fields: numbered with the atom's id, length-delimited, the serialised atom.
#pragma once

#include <statsd/atom.pb.h>
