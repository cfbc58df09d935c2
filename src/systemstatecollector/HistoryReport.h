#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "systemstatecollector/SystemStateCollector.h"

namespace Torv::OS::Diagnostics {

// The history that `samples`, oldest first, make at `nowMs`. `extractMetrics(sample, Json::Value& metrics)`
// is called oldest first, since some metrics are differences to the sample before; the report lists the
// newest first.
template <typename RawMetric, typename ExtractMetrics>
std::unique_ptr<SystemStateCollector::History> makeHistory(std::string name, uint64_t nowMs,
                                                           const std::vector<RawMetric>& samples,
                                                           const ExtractMetrics& extractMetrics) {
  std::vector<Json::Value> metrics;
  metrics.reserve(samples.size());
  for (const RawMetric& sample : samples) {
    extractMetrics(sample, metrics.emplace_back(Json::objectValue));
  }

  Json::Value report = SystemStateCollector::Utils::makeJsonReport(nowMs);
  for (size_t i = samples.size(); i-- > 0;) {
    SystemStateCollector::Utils::addTimeSeriesDataToJsonReport(report, nowMs - samples[i].timeMs,
                                                               std::move(metrics[i]));
  }
  return SystemStateCollector::Utils::finishJsonReport(report, std::move(name));
}

}  // namespace Torv::OS::Diagnostics
