// A preferences file of any bytes. The store reads it or sets it aside, and storing one value keeps all
// others.
#include <unistd.h>

#include "Fuzz.h"
#include "ossdkhost/PreferencesFile.h"
#include "support/TempDir.h"

FUZZ(text) {
  static const test::TempDir directory;
  const std::string path = directory.write(platform::PreferencesFile::kName, text);
  platform::PreferencesFile file(directory.path());
  const auto before = file.read();
  check(before != nullptr && before->isObject(), "something to read");
  if (before->empty() && access(path.c_str(), F_OK) != 0) return;  // set aside
  Json::Value expected = *before;
  expected["key"] = "value";
  // It fails if the file would exceed a limit.
  if (!file.update([](Json::Value& values) { values["key"] = "value"; }).ok()) return;
  const auto after = file.read();
  check(after != nullptr && *after == expected, "one value more");
}
