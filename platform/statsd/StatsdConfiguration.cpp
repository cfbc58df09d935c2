#include "statsd/StatsdConfiguration.h"

#include <algorithm>
#include <string>

#include <android/log.h>

#include "Statsd.h"
#include "runtime/HeapPolicy.h"
#include "runtime/HostLog.h"
#include "runtime/RuntimeDirectory.h"

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
  (*statsd)->configure({uid, configId}, {mAtomIds, mAllowedLogSources});
  return PublishStatus::Success;
}

}  // namespace libstatsd
