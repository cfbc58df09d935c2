#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "TextCollector.h"
#include "TextSource.h"

namespace Torv::OS::Diagnostics {

// How much memory there is, and how much of it can still be had, from /proc/meminfo.
class SystemMemInfoCollector : public TextCollector {
 public:
  static std::unique_ptr<SystemMemInfoCollector> init(SystemStateCollectorConfig config);
  SystemMemInfoCollector(const SystemStateCollectorConfig& config, TextSource source);

  uint8_t getId() const override;
  std::string getDescription() const override;

 private:
  std::string historyName() const override;
  void logBadStream() const override;
  void extractMetrics(const RawMetric& sample, Json::Value& out) override;
};

}  // namespace Torv::OS::Diagnostics
