#include "SystemMemInfoCollector.h"

#include <array>
#include <utility>

#include <android/log.h>

#include "MemInfo.h"

namespace Torv::OS::Diagnostics {
namespace {

// In the order of MemInfo::kNames.
const std::array<Json::StaticString, MemInfo::kNames.size()> kMetrics = {
    Json::StaticString("MemTotal_KB"), Json::StaticString("MemFree_KB"),
    Json::StaticString("MemAvailable_KB"), Json::StaticString("Buffers_KB"), Json::StaticString("Cached_KB")};
const Json::StaticString kAvailable("MemAvail_%");

}  // namespace

std::unique_ptr<SystemMemInfoCollector> SystemMemInfoCollector::init(SystemStateCollectorConfig config) {
  auto source = TextSource::open("/proc/meminfo");
  if (!source) return nullptr;
  return std::make_unique<SystemMemInfoCollector>(config, std::move(*source));
}

SystemMemInfoCollector::SystemMemInfoCollector(const SystemStateCollectorConfig& config, TextSource source)
    : TextCollector(config, std::move(source), Evaluate::NewestFirst) {}

uint8_t SystemMemInfoCollector::getId() const {
  return 4;
}

std::string SystemMemInfoCollector::getDescription() const {
  return "Provides system memory information";
}

std::string SystemMemInfoCollector::historyName() const {
  return "system_meminfo_history";
}

void SystemMemInfoCollector::logBadStream() const {
  __android_log_print(ANDROID_LOG_ERROR, nullptr, "Stream /proc/meminfo is bad");
}

void SystemMemInfoCollector::extractMetrics(const RawMetric& sample, Json::Value& out) {
  const MemInfo info = parseMemInfo(sample.text);
  for (size_t i = 0; i < kMetrics.size(); ++i) {
    if (info.valuesKb[i]) out[kMetrics[i]] = Json::Value::UInt{*info.valuesKb[i]};
  }
  if (const auto percent = memAvailablePercent(info)) {
    out[kAvailable] = *percent;
  } else {
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "Did not find all required metrics in /proc/meminfo");
  }
}

}  // namespace Torv::OS::Diagnostics
