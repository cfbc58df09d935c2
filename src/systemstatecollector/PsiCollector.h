#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "TextCollector.h"
#include "TextSource.h"

namespace Torv::OS::Diagnostics {

// Pressure stall information: how much of the time tasks waited for one resource, from the resource's file
// under /proc/pressure.
class PsiCollector : public TextCollector {
 public:
  std::string getDescription() const override;

 protected:
  PsiCollector(const SystemStateCollectorConfig& config, std::string resourceName, TextSource source);

  // Opens the pressure file of `resourceName`; empty, with an error log, where there is none.
  static std::optional<TextSource> init(const std::string& resourceName);

 private:
  std::string historyName() const override;
  void logBadStream() const override;
  void extractMetrics(const RawMetric& sample, Json::Value& out) override;

  const std::string mResourceName;
};

class PsiCpuCollector : public PsiCollector {
 public:
  static std::unique_ptr<PsiCpuCollector> init(SystemStateCollectorConfig config);
  PsiCpuCollector(const SystemStateCollectorConfig& config, TextSource source);

  uint8_t getId() const override;
};

class PsiMemCollector : public PsiCollector {
 public:
  static std::unique_ptr<PsiMemCollector> init(SystemStateCollectorConfig config);
  PsiMemCollector(const SystemStateCollectorConfig& config, TextSource source);

  uint8_t getId() const override;
};

class PsiIoCollector : public PsiCollector {
 public:
  static std::unique_ptr<PsiIoCollector> init(SystemStateCollectorConfig config);
  PsiIoCollector(const SystemStateCollectorConfig& config, TextSource source);

  uint8_t getId() const override;
};

}  // namespace Torv::OS::Diagnostics
