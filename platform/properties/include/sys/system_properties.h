// System properties by calls of the device's C library, over the file <runtime>/properties: those two that
// read a value of any length. The file is read anew at every call, so a value is what the file says now; a
// missing file is an empty property area. Both calls are thread-safe.
#pragma once

// The names are the C library's own.
// NOLINTBEGIN(bugprone-reserved-identifier)

#include <stdint.h>

extern "C" {

// A value and its NUL; only names that begin with "ro." may have longer ones.
#define PROP_VALUE_MAX 92

// Stands for a property by its name. Lives as long as the process, so it may be kept.
typedef struct prop_info prop_info;

// Returns null if there is no such property, or if the file cannot be read (which is logged once).
const prop_info* __system_property_find(const char* name);

// Calls `callback` once, before it returns, with the property's present value, whatever its length; the value
// is "" if the property has been removed since it was found. Name and value are valid during the callback.
// The serial, which on the device tells an old value from a new one, is 0.
void __system_property_read_callback(const prop_info* property,
                                     void (*callback)(void* cookie, const char* name, const char* value,
                                                      uint32_t serial),
                                     void* cookie);

}  // extern "C"

// NOLINTEND(bugprone-reserved-identifier)
