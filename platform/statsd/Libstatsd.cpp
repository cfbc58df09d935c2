// The client library, whose statsd runs in the same process.
#include <algorithm>

#include <android/log.h>

#include "Statsd.h"
#include "runtime/HeapPolicy.h"
#include "runtime/HostLog.h"
#include "runtime/RuntimeDirectory.h"
#include "statsd/StatsdCollection.h"
#include "statsd/StatsdConfiguration.h"

namespace libstatsd {
namespace {

// A process that publishes a configuration is a service, and only such a process links this file. Its log and
// its heap are set up before main(), which logs and allocates.
[[maybe_unused]] const bool kProcessIsSetUp = (platform::installHostLog(), platform::applyHeapPolicy(), true);

constexpr int32_t kMaxAtomId = (1 << 29) - 1;  // an atom's id is a field number in its report
constexpr size_t kMaxLogSources = 150;

}  // namespace

bool StatsdConfiguration::addEventAtomId(int32_t atomId) {
  if (atomId < 1 || atomId > kMaxAtomId) return false;
  if (std::find(mAtomIds.begin(), mAtomIds.end(), atomId) != mAtomIds.end()) return false;
  mAtomIds.push_back(atomId);
  return true;
}

void StatsdConfiguration::addAllowedLogSource(const std::string& source) {
  mAllowedLogSources.push_back(source);
}

PublishStatus StatsdConfiguration::publishConfigurationBlocked(int32_t configId, int32_t uid) {
  if (mAtomIds.empty() || mAllowedLogSources.empty() || mAllowedLogSources.size() > kMaxLogSources) {
    return PublishStatus::ConfigurationFailure;
  }
  auto statsd = Statsd::startIn(platform::runtimeDirectory());
  if (!statsd.ok()) {
    __android_log_print(ANDROID_LOG_ERROR, "statsd", "cannot start: %s", statsd.error().message().c_str());
    return PublishStatus::FailedToReachService;
  }
  const bool configured = (*statsd)->configure({uid, configId}, mAtomIds, mAllowedLogSources);
  return configured ? PublishStatus::Success : PublishStatus::ConfigurationFailure;
}

void StatsdCollection::addConfiguration(int32_t configId, int32_t uid) {
  mConfigurations.emplace_back(configId, uid);
}

std::variant<std::vector<Report>, Error> StatsdCollection::fetchReportsBlocked() {
  const std::string directory = platform::runtimeDirectory();
  Statsd* statsd = Statsd::runningIn(directory);
  if (statsd == nullptr) return Error{"no configuration has been published in " + directory};
  std::vector<Report> reports;
  for (const auto& [configId, uid] : mConfigurations) {
    Report atoms = statsd->fetch({uid, configId});
    if (!atoms.empty()) reports.push_back(std::move(atoms));
  }
  return reports;
}

}  // namespace libstatsd
