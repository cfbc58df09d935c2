#include "osutils/Properties.h"

#include <sys/system_properties.h>

namespace Torv::Utils {

std::string getSystemProperty(const std::string& name) {
  // Through the callback, because only that gives a read-only value of more than PROP_VALUE_MAX bytes.
  const auto keep = [](void* cookie, const char*, const char* value, uint32_t) {
    *static_cast<std::string*>(cookie) = value;
  };
  std::string text;
  const prop_info* property = __system_property_find(name.c_str());
  if (property != nullptr) __system_property_read_callback(property, keep, &text);
  return text;
}

}  // namespace Torv::Utils
