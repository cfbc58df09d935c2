#include "MemInfo.h"

#include <algorithm>

#include "TextScanner.h"

namespace Torv::OS::Diagnostics {

MemInfo parseMemInfo(std::string_view text) {
  MemInfo info;
  std::string_view line;
  while (nextLine(text, line)) {
    std::string_view name = nextWord(line);
    if (name.empty()) continue;
    name.remove_suffix(1);
    const auto* const found = std::find(MemInfo::kNames.begin(), MemInfo::kNames.end(), name);
    if (found == MemInfo::kNames.end()) continue;

    const auto index = static_cast<size_t>(found - MemInfo::kNames.begin());
    uint32_t valueKb = 0;
    (void)nextNumber(line, valueKb);
    info.valuesKb[index] = valueKb;
    ++(index < MemInfo::kRequired ? info.requiredFound : info.additionalFound);
    if (info.requiredFound == MemInfo::kRequired &&
        info.additionalFound == MemInfo::kNames.size() - MemInfo::kRequired) {
      break;
    }
  }
  return info;
}

std::optional<double> memAvailablePercent(const MemInfo& info) {
  const uint32_t totalKb = info.valuesKb[0].value_or(0);
  const uint32_t availableKb = info.valuesKb[2].value_or(0);
  if (info.requiredFound != MemInfo::kRequired || totalKb == 0) return std::nullopt;
  return availableKb * 100.0 / totalKb;
}

}  // namespace Torv::OS::Diagnostics
