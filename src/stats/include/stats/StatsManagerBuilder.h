#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "stats/StatsManager.h"

namespace Torv::OS::Diagnostics {

// Collects what is to be asked of statsd, then publishes it: std::move(builder).build().
class StatsManagerBuilder {
 public:
  virtual ~StatsManagerBuilder() = default;

  StatsManagerBuilder& setConfigId(int64_t configId);
  StatsManagerBuilder& addAtomId(int32_t atomId);
  // A name of statsd's own for a uid ("AID_SYSTEM") or a package name.
  StatsManagerBuilder& addAllowedLogSource(std::string source);
  // Who the configuration belongs to; AID_SYSTEM where it is not said.
  StatsManagerBuilder& setUid(int32_t uid);

  // Empty where something is missing or statsd refuses; the log says which.
  virtual std::unique_ptr<StatsManager> build() &&;

 private:
  int64_t mConfigId = 0;
  std::vector<int32_t> mAtomIds;
  std::vector<std::string> mAllowedLogSources;
  int32_t mUid = 1000;
};

}  // namespace Torv::OS::Diagnostics
