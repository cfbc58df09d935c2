#include "SystemMemInfoCollector.h"

#include <algorithm>
#include <utility>

#include <android/log.h>

#include "TextScanner.h"

namespace Torv::OS::Diagnostics {
namespace {

constexpr SourceInfo kMemInfo{4, "/proc/meminfo", "system_meminfo_history",
                              "Provides system memory information", "Stream /proc/meminfo is bad"};
// In the order of MemInfo::kNames.
const std::array<Json::StaticString, SystemMemInfoCollector::MemInfo::kNames.size()> kMetrics = {
    Json::StaticString("MemTotal_KB"), Json::StaticString("MemFree_KB"),
    Json::StaticString("MemAvailable_KB"), Json::StaticString("Buffers_KB"), Json::StaticString("Cached_KB")};
const Json::StaticString kAvailable("MemAvail_%");

}  // namespace

SystemMemInfoCollector::MemInfo SystemMemInfoCollector::parse(std::string_view text) {
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

std::optional<double> SystemMemInfoCollector::availablePercent(const MemInfo& info) {
  const uint32_t totalKb = info.valuesKb[0].value_or(0);
  const uint32_t availableKb = info.valuesKb[2].value_or(0);
  if (info.requiredFound != MemInfo::kRequired || totalKb == 0) return std::nullopt;
  return availableKb * 100.0 / totalKb;
}

void SystemMemInfoCollector::extractMetrics(const RawMetric& sample, Json::Value& out) {
  const MemInfo info = parse(sample.text);
  for (size_t i = 0; i < kMetrics.size(); ++i) {
    if (info.valuesKb[i]) out[kMetrics[i]] = Json::Value::UInt{*info.valuesKb[i]};
  }
  if (const auto percent = availablePercent(info)) {
    out[kAvailable] = *percent;
  } else {
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "Did not find all required metrics in /proc/meminfo");
  }
}

std::unique_ptr<SystemMemInfoCollector> SystemMemInfoCollector::init(SystemStateCollectorConfig config) {
  return initFrom<SystemMemInfoCollector>(kMemInfo, config);
}

SystemMemInfoCollector::SystemMemInfoCollector(const SystemStateCollectorConfig& config, TextSource source)
    : TextCollector(config, kMemInfo, std::move(source)) {}

}  // namespace Torv::OS::Diagnostics
