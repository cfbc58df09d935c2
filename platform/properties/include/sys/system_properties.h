// System properties by the calls that the device's C library has, over the file <runtime>/properties. The
// file is read anew at every call, so a value is what the file says now; a missing file is an empty property
// area. All calls are thread-safe.
#pragma once

// The names are the C library's own.
// NOLINTBEGIN(bugprone-reserved-identifier)

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// A value and its NUL; only names that begin with "ro." may have longer ones.
#define PROP_VALUE_MAX 92

// Stands for a property by its name. Lives as long as the process, so it may be kept.
typedef struct prop_info prop_info;

// Returns null if there is no such property, or if the file cannot be read (which is logged once).
const prop_info* __system_property_find(const char* name);

// Calls `callback` once, before it returns, with the property's present value, whatever its length; the value
// is "" if the property has been removed since it was found. Name and value are valid during the callback.
// The serial is computed from the value: bits 24 to 31 are its length (of a value of PROP_VALUE_MAX bytes or
// more: the length of the text that __system_property_get() gives), bit 16 is set for such a long value, bit
// 0 never.
void __system_property_read_callback(const prop_info* property,
                                     void (*callback)(void* cookie, const char* name, const char* value,
                                                      uint32_t serial),
                                     void* cookie);

// Copies the value into `value`, which has room for PROP_VALUE_MAX bytes, and returns its length. If there is
// no such property, or the file cannot be read, copies "" and returns 0. In place of a longer value, copies a
// text that tells the reader to use __system_property_read_callback().
int __system_property_get(const char* name, char* value);

// Sets a property; a null value is "". Returns 0, or -1 and logs the reason if the name or the value is not
// legal, a read-only property has a value already, or the file cannot be written.
int __system_property_set(const char* name, const char* value);

// Calls `callback` for every property, in the order of the names. Returns 0.
int __system_property_foreach(void (*callback)(const prop_info* property, void* cookie), void* cookie);

#ifdef __cplusplus
}
#endif

// NOLINTEND(bugprone-reserved-identifier)
