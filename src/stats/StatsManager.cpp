#include "stats/StatsManager.h"

#include <string>
#include <utility>
#include <variant>

#include <unistd.h>

#include "AtomDecoder.h"
#include "stats/StatsManagerBuilder.h"

namespace Torv::OS::Diagnostics {
namespace {

constexpr int64_t kConfigId = 57476;
constexpr int32_t kAtomIds[] = {kApplicationStateAtomId, kTelemetrySessionAtomId};
constexpr const char* kAllowedLogSources[] = {
    "AID_APP",
    "AID_SYSTEM",
    "com.pellux.tarnwick",
    "com.pellux.loameth",
    "com.pellux.quorrel",
    "com.pellux.vantry",
    "com.pellux.hobbrin",
    "com.pellux.dobrel",
    "com.pellux.skelmir",
};

}  // namespace

std::unique_ptr<StatsManager> StatsManager::makeDefaultManager() {
  StatsManagerBuilder builder;
  builder.setConfigId(kConfigId).setUid(static_cast<int32_t>(getuid()));
  for (const int32_t atomId : kAtomIds) builder.addAtomId(atomId);
  for (const char* source : kAllowedLogSources) builder.addAllowedLogSource(source);
  return std::move(builder).build();
}

StatsManager::StatsManager(std::unique_ptr<LibstatsdWrapper> wrapper) : mWrapper(std::move(wrapper)) {}

std::vector<ApplicationState> StatsManager::fetchReports() {
  auto fetched = mWrapper->fetchReports();
  if (auto* states = std::get_if<std::vector<ApplicationState>>(&fetched)) return std::move(*states);
  return {};
}

}  // namespace Torv::OS::Diagnostics
