#include <sys/system_properties.h>

#include <set>
#include <string>

#include "base/Mutex.h"
#include "properties/PropertyFile.h"

struct prop_info {
  std::string name;

  bool operator<(const prop_info& other) const { return name < other.name; }
};

const prop_info* __system_property_find(const char* name) {
  struct KnownNames {
    Torv::Base::Mutex mutex;
    std::set<prop_info> names GUARDED_BY(mutex);
  };
  // One prop_info for each name that was ever found. Never destroyed, because callers may keep the pointers.
  static auto& known = *new KnownNames();
  if (name == nullptr || !platform::findProperty(platform::readPropertyFile(), name)) return nullptr;
  const Torv::Base::LockGuard lock(known.mutex);
  return &*known.names.insert({name}).first;
}

void __system_property_read_callback(const prop_info* property,
                                     void (*callback)(void* cookie, const char* name, const char* value,
                                                      uint32_t serial),
                                     void* cookie) {
  const std::string text = platform::readPropertyFile();
  const std::string value(platform::findProperty(text, property->name).value_or(""));
  callback(cookie, property->name.c_str(), value.c_str(), 0);
}
