#include <map>
#include <sstream>

#include "Fuzz.h"
#include "SystemMemInfoCollector.h"

using namespace Torv::OS::Diagnostics;
using MemInfo = SystemMemInfoCollector::MemInfo;

FUZZ(text) {
  const std::map<std::string, bool> isRequired{
      {"MemTotal", true}, {"MemFree", true}, {"MemAvailable", true}, {"Buffers", false}, {"Cached", false}};
  std::map<std::string, uint32_t> values;
  size_t found[2] = {};  // additional ones, required ones
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string name;
    uint32_t value = 0;
    words >> name >> value;
    if (name.empty()) continue;
    name.pop_back();
    if (isRequired.count(name) == 0) continue;
    ++found[isRequired.at(name) ? 1 : 0];
    values[name] = value;
    if (found[1] == 3 && found[0] == 2) break;
  }

  const MemInfo info = SystemMemInfoCollector::parse(text);
  check(info.requiredFound == found[1] && info.additionalFound == found[0], "lines found");
  for (size_t i = 0; i < MemInfo::kNames.size(); ++i) {
    const auto value = values.find(std::string(MemInfo::kNames[i]));
    check(info.valuesKb[i].has_value() == (value != values.end()), "names found");
    check(!info.valuesKb[i] || *info.valuesKb[i] == value->second, "value");
  }
  const auto percent = SystemMemInfoCollector::availablePercent(info);
  check(percent.has_value() == (found[1] == 3 && values["MemTotal"] != 0), "share");
  check(!percent || *percent == values["MemAvailable"] * 100.0 / values["MemTotal"], "share");
}
