// A preferences file of any bytes. The store reads it or sets it aside, and storing one value keeps all
// others.
#include <cstdint>
#include <cstdlib>

#include <android/log.h>
#include <unistd.h>

#include "ossdkhost/PreferencesFile.h"
#include "support/TempDir.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const test::TempDir directory;
  const std::string path =
      directory.write(platform::PreferencesFile::kName, {reinterpret_cast<const char*>(data), size});
  platform::PreferencesFile file(directory.path());
  const auto before = file.read();
  if (before == nullptr || !before->isObject()) abort();
  if (before->empty() && access(path.c_str(), F_OK) != 0) return 0;  // set aside
  Json::Value expected = *before;
  expected["key"] = "value";
  if (!file.update([](Json::Value& values) { values["key"] = "value"; }).ok())
    return 0;  // the file would exceed a limit
  const auto after = file.read();
  if (after == nullptr || *after != expected) abort();
  return 0;
}
