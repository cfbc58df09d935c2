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

// Null where there is no such property.
const prop_info* __system_property_find(const char* name);

// Calls `callback` once, before it returns, with the property's current value ("" where the property has gone
// since it was found), whole whatever its length. Name and value are good during the callback. The serial
// is a function of the value: length in bits 24 to 31 (for a value of PROP_VALUE_MAX bytes or more: that of
// the text __system_property_get() gives), bit 16 set for a long value, bit 0 never.
void __system_property_read_callback(const prop_info* property,
                                     void (*callback)(void* cookie, const char* name, const char* value,
                                                      uint32_t serial),
                                     void* cookie);

// Copies the value into `value`, which has room for PROP_VALUE_MAX bytes; returns its length, 0 and "" where
// there is none. A longer value is replaced by a text that tells to use __system_property_read_callback().
int __system_property_get(const char* name, char* value);

// 0, or -1 where the name or the value is not legal, a read-only property has a value already, or the file
// cannot be written; a log line says which. A null value is "".
int __system_property_set(const char* name, const char* value);

// Calls `callback` for every property, in the order of the names. Returns 0.
int __system_property_foreach(void (*callback)(const prop_info* property, void* cookie), void* cookie);

#ifdef __cplusplus
}
#endif

// NOLINTEND(bugprone-reserved-identifier)
