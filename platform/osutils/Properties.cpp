#include "osutils/Properties.h"

#include <sys/system_properties.h>

namespace Torv::Utils {

std::string getSystemProperty(const std::string& name) {
  std::string text;
  if (const prop_info* property = __system_property_find(name.c_str())) {
    // Through the callback, because only that gives a read-only value of more than PROP_VALUE_MAX bytes.
    __system_property_read_callback(
        property,
        [](void* cookie, const char*, const char* value, uint32_t) {
          *static_cast<std::string*>(cookie) = value;
        },
        &text);
  }
  return text;
}

}  // namespace Torv::Utils
