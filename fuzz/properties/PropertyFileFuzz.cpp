// A property file of any bytes. Looking one property up gives the value that the list of all has, and setting
// one changes no other.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include <android/log.h>

#include "properties/PropertyFile.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  platform::PropertyMap properties = platform::parseProperties(text);
  for (const auto& [name, value] : properties) {
    if (platform::findProperty(text, name) != value) abort();
  }
  for (const char* name : {"a", "ro.b"}) {
    platform::PropertyMap expected = properties;
    expected[name] = "new";
    if (platform::parseProperties(platform::withProperty(text, name, "new")) != expected) abort();
  }
  return 0;
}
