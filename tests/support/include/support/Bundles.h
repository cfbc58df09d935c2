#pragma once

#include <binder/PersistableBundle.h>

namespace test {

using android::String16;
using android::os::PersistableBundle;

inline PersistableBundle strings(std::initializer_list<std::pair<const char*, const char*>> entries) {
  PersistableBundle bundle;
  for (const auto& [key, value] : entries) bundle.putString(String16(key), String16(value));
  return bundle;
}

// Returns a bundle of the entries of `bundle`, and `nested` under `key`.
inline PersistableBundle with(PersistableBundle bundle, const char* key, const PersistableBundle& nested) {
  bundle.putPersistableBundle(String16(key), nested);
  return bundle;
}

// The answer about one process.
inline PersistableBundle process(int32_t pid, const PersistableBundle& states) {
  PersistableBundle bundle;
  bundle.putInt(String16("processId"), pid);
  return with(bundle, "ApplicationStateData", states);
}

}  // namespace test
