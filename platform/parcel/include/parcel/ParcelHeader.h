// <binder/Parcel.h>, <binder/PersistableBundle.h> and <binder/Status.h> on a host. The headers are Debian's;
// this folder implements the part of them that the project's interfaces, the proxies that aidl-cpp generates
// from their .aidl files, and a plain client need. A program that calls another part does not link.
//
// Implemented: int32, int64, double, bool, String16, String8, UTF-8 text (written as UTF-16), vectors of
// these and of bytes, parcelables, interface tokens, bundles of all value types, and Status. Binder objects
// and file descriptors do not travel: a program that writes or reads one does not link.
//
// The bytes are those of API 32 and little-endian. Where Debian's headers come from an older library that
// writes other bytes, API 32 is the rule; tests/platform/parcel lists the differences.
//
// Errors of reading, for bytes that another process made up:
// - NOT_ENOUGH_DATA: the parcel ends within a value of fixed width. The position does not move.
// - UNEXPECTED_NULL: a null value that may not be null, or a string that is cut, lacks its NUL or has a
// negative length.
// - BAD_VALUE: a vector's or bundle's count that the bytes left cannot hold, a bundle with unknown magic or
// nested more than 32 deep. The device's reader has no limit for bundles; this one is stricter on purpose.
// - BAD_TYPE: a bundle's entry of unknown type.
// No read touches a byte past the end or allocates more than in proportion to the bytes left.
//
// Errors of writing: BAD_VALUE if a value or the parcel is 2 GiB or longer, NO_MEMORY. errorCheck() keeps the
// last of them until freeData(), so a sender may check once at the end.
//
// A parcel owns its buffer. Pointers from data(), readInplace() and readString16Inplace() are valid until the
// parcel is written to or freed. Neither class is thread-safe: one thread uses an object at a time.
//
// Include this header instead of <binder/Parcel.h>: that one, and those that include it, use three standard
// headers without including them.
#pragma once

#include <limits>
#include <memory>
#include <optional>

#include <binder/Parcel.h>
