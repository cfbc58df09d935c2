#include "Fuzz.h"
#include "systemcontext/SystemContextManager.h"

// Every flag and value that the parser returns must stand between two commas of the input, unchanged.
FUZZ(tags) {
  std::unordered_set<std::string> flags;
  std::unordered_map<std::string, std::string> values;
  check(Torv::OS::Diagnostics::SystemContextManager::parseBuildTags(tags, flags, values),
        "every text can be parsed");
  const std::string listed = "," + tags + ",";
  const auto isName = [](const std::string& text) {
    return !text.empty() && text.find_first_of(",:") == std::string::npos;
  };
  for (const std::string& flag : flags) {
    check(isName(flag) && listed.find("," + flag + ",") != std::string::npos, "flag");
  }
  for (const auto& [name, value] : values) {
    const std::string tag = "," + name + ":";
    const size_t last = listed.rfind(tag);
    check(isName(name) && last != std::string::npos, "name");
    check(listed.compare(last + tag.size(), value.size() + 1, value + ",") == 0, "value");
  }
}
