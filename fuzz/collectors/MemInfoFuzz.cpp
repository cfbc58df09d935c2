#include <map>
#include <set>

#include "Check.h"
#include "MemInfo.h"

using namespace Torv::OS::Diagnostics;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::set<std::string> required{"MemTotal", "MemFree", "MemAvailable"};
  const std::set<std::string> additional{"Buffers", "Cached"};
  std::map<std::string, uint32_t> values;
  size_t requiredFound = 0;
  size_t additionalFound = 0;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string name;
    uint32_t value = 0;
    words >> name >> value;
    if (name.empty()) continue;
    name.pop_back();
    requiredFound += required.count(name);
    additionalFound += additional.count(name);
    if (required.count(name) + additional.count(name) > 0) values[name] = value;
    if (requiredFound == required.size() && additionalFound == additional.size()) break;
  }

  const MemInfo info = parseMemInfo(text);
  check(info.requiredFound == requiredFound && info.additionalFound == additionalFound, "lines found");
  for (size_t i = 0; i < MemInfo::kNames.size(); ++i) {
    const auto value = values.find(std::string(MemInfo::kNames[i]));
    check(info.valuesKb[i].has_value() == (value != values.end()), "names found");
    check(!info.valuesKb[i] || *info.valuesKb[i] == value->second, "value");
  }
  const auto percent = memAvailablePercent(info);
  check(percent.has_value() == (requiredFound == required.size() && values["MemTotal"] != 0), "share");
  check(!percent || *percent == values["MemAvailable"] * 100.0 / values["MemTotal"], "share");
  return 0;
}
