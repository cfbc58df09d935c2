#include <sys/system_properties.h>

#include <cstring>
#include <functional>
#include <set>
#include <string>

#include <android/log.h>

#include "base/Mutex.h"
#include "properties/PropertyFile.h"

struct prop_info {
  std::string name;

  bool operator<(const prop_info& other) const { return name < other.name; }
};

namespace {

constexpr char kLongValueText[] = "Must use __system_property_read_callback() to read";

// One prop_info for each name that was ever found. Never destroyed, because callers may keep the pointers.
struct KnownNames {
  Torv::Base::Mutex mutex;
  std::set<prop_info> names GUARDED_BY(mutex);
};

const prop_info* intern(const std::string& name) {
  static auto& known = *new KnownNames();
  const Torv::Base::LockGuard lock(known.mutex);
  return &*known.names.insert({name}).first;
}

uint32_t serialOf(const std::string& value) {
  constexpr uint32_t kLongFlag = 1U << 16;
  constexpr uint32_t kLengthShift = 24;
  constexpr uint32_t kHashBits = 0xfefffe;  // neither the length, nor the long flag, nor the dirty bit
  const auto hash = static_cast<uint32_t>(std::hash<std::string>()(value)) & kHashBits;
  if (value.size() < PROP_VALUE_MAX) return static_cast<uint32_t>(value.size()) << kLengthShift | hash;
  return (sizeof(kLongValueText) - 1) << kLengthShift | kLongFlag | hash;
}

}  // namespace

const prop_info* __system_property_find(const char* name) {
  if (name == nullptr) return nullptr;
  if (!platform::findProperty(platform::readPropertyFile(), name)) return nullptr;
  return intern(name);
}

void __system_property_read_callback(const prop_info* property,
                                     void (*callback)(void* cookie, const char* name, const char* value,
                                                      uint32_t serial),
                                     void* cookie) {
  const std::string text = platform::readPropertyFile();
  const std::string value(platform::findProperty(text, property->name).value_or(""));
  callback(cookie, property->name.c_str(), value.c_str(), serialOf(value));
}

int __system_property_get(const char* name, char* value) {
  const std::string text = platform::readPropertyFile();
  std::string_view found = platform::findProperty(text, name).value_or("");
  if (found.size() >= PROP_VALUE_MAX) found = kLongValueText;
  memcpy(value, found.data(), found.size());
  value[found.size()] = '\0';
  return static_cast<int>(found.size());
}

int __system_property_set(const char* name, const char* value) {
  const auto set = platform::setProperty(name, value != nullptr ? value : "");
  if (set.ok()) return 0;
  __android_log_print(ANDROID_LOG_WARN, "properties", "%s", set.error().message().c_str());
  return -1;
}

int __system_property_foreach(void (*callback)(const prop_info* property, void* cookie), void* cookie) {
  for (const auto& [name, value] : platform::parseProperties(platform::readPropertyFile())) {
    callback(intern(name), cookie);
  }
  return 0;
}
