#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "systemstatecollector/SystemStateCollector.h"

namespace Torv::OS::Diagnostics {

// The order in which samples are turned into metrics. Whatever it is, a report lists the newest first.
enum class Evaluate {
  NewestFirst,
  OldestFirst,  // where metrics are differences to the sample before
};

// The history that `samples`, oldest first, make at `nowMs`. `extractMetrics(sample, Json::Value& metrics)`
// fills an empty object.
template <typename RawMetric, typename ExtractMetrics>
std::unique_ptr<SystemStateCollector::History> makeHistory(std::string name, uint64_t nowMs,
                                                           const std::vector<RawMetric>& samples,
                                                           Evaluate order,
                                                           const ExtractMetrics& extractMetrics) {
  std::vector<Json::Value> evaluated;
  if (order == Evaluate::OldestFirst) {
    evaluated.reserve(samples.size());
    for (const RawMetric& sample : samples) extractMetrics(sample, evaluated.emplace_back(Json::objectValue));
  }

  Json::Value report = SystemStateCollector::Utils::makeJsonReport(nowMs);
  for (size_t i = samples.size(); i-- > 0;) {
    Json::Value metrics(Json::objectValue);
    if (order == Evaluate::OldestFirst) {
      metrics = std::move(evaluated[i]);
    } else {
      extractMetrics(samples[i], metrics);
    }
    SystemStateCollector::Utils::addTimeSeriesDataToJsonReport(report, nowMs - samples[i].timeMs,
                                                               std::move(metrics));
  }
  return SystemStateCollector::Utils::finishJsonReport(report, std::move(name));
}

}  // namespace Torv::OS::Diagnostics
