#include <cstdint>
#include <cstdlib>

#include "systemcontext/SystemContextManager.h"

using Torv::OS::Diagnostics::SystemContextManager;

// Every flag and value that the parser returns must stand between two commas of the input, unchanged.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string tags(reinterpret_cast<const char*>(data), size);
  std::unordered_set<std::string> flags;
  std::unordered_map<std::string, std::string> values;
  if (!SystemContextManager::parseBuildTags(tags, flags, values)) abort();
  const std::string listed = "," + tags + ",";
  for (const std::string& flag : flags) {
    if (flag.empty() || flag.find_first_of(",:") != std::string::npos) abort();
    if (listed.find("," + flag + ",") == std::string::npos) abort();
  }
  for (const auto& [name, value] : values) {
    if (name.empty() || name.find_first_of(",:") != std::string::npos) abort();
    const std::string tag = "," + name + ":";
    const size_t last = listed.rfind(tag);
    if (last == std::string::npos || listed.compare(last + tag.size(), value.size() + 1, value + ",") != 0)
      abort();
  }
  return 0;
}
