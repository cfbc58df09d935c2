// A preferences file of any bytes: it is read or set aside, and storing a value loses no other.
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <android/log.h>
#include <unistd.h>

#include "ossdkhost/PreferencesFile.h"

namespace {

// Made with the first input, removed at exit.
const std::string& directory() {
  static const auto& path = *new std::string([] {
    std::string pattern = (std::filesystem::temp_directory_path() / "prefs-fuzz-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) abort();
    std::atexit([] { std::filesystem::remove_all(directory()); });
    return pattern;
  }());
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string path = directory() + "/" + platform::PreferencesFile::kName;
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  platform::PreferencesFile file(directory());
  const auto before = file.read();
  if (before == nullptr || !before->isObject()) abort();
  if (before->empty() && access(path.c_str(), F_OK) != 0) return 0;  // set aside
  Json::Value expected = *before;
  expected["key"] = "value";
  if (file.update([](Json::Value& values) { values["key"] = "value"; })) return 0;  // would pass a limit
  const auto after = file.read();
  if (after == nullptr || *after != expected) abort();
  return 0;
}
