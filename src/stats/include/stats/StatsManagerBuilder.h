#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "stats/StatsManager.h"

namespace Torv::OS::Diagnostics {

// Collects a statsd configuration and publishes it: std::move(builder).build(). A configuration says which
// atoms statsd keeps for the service, and from which senders. An id, an atom and a source are required. Not
// thread-safe.
class StatsManagerBuilder {
 public:
  virtual ~StatsManagerBuilder() = default;

  // Sets the number that tells the owner's configurations apart, at least 1. Only its low 32 bits count.
  StatsManagerBuilder& setConfigId(int64_t configId);
  // Adds an atom that statsd keeps when it is published.
  StatsManagerBuilder& addAtomId(int32_t atomId);
  // Adds a sender whose atoms statsd accepts. `source` is statsd's name for a uid ("AID_SYSTEM"), or a
  // package name.
  StatsManagerBuilder& addAllowedLogSource(std::string source);
  // Sets the owner of the configuration. The default is AID_SYSTEM (1000).
  StatsManagerBuilder& setUid(int32_t uid);

  // Publishes the configuration. Returns an empty pointer and logs the reason if something is missing or
  // statsd refuses it. Blocks on statsd.
  virtual std::unique_ptr<StatsManager> build() &&;

 private:
  int64_t mConfigId = 0;
  std::vector<int32_t> mAtomIds;
  std::vector<std::string> mAllowedLogSources;
  int32_t mUid = 1000;
};

}  // namespace Torv::OS::Diagnostics
