#include "stats/StatsManagerBuilder.h"

#include <utility>

#include <android/log.h>
#include <statsd/StatsdCollection.h>
#include <statsd/StatsdConfiguration.h>

#include "AtomDecoder.h"

namespace Torv::OS::Diagnostics {
namespace {

using libstatsd::PublishStatus;

// The wrapper over the platform's statsd. Thread-safe, as StatsdCollection is.
class DefaultlibstatsdWrapper : public LibstatsdWrapper {
 public:
  explicit DefaultlibstatsdWrapper(libstatsd::StatsdCollection collection)
      : mCollection(std::move(collection)) {}

  std::variant<std::vector<ApplicationState>, libstatsd::Error> fetchReports() override {
    auto fetched = mCollection.fetchReportsBlocked();
    if (auto* error = std::get_if<libstatsd::Error>(&fetched)) return std::move(*error);
    return decodeReports(std::move(*std::get_if<std::vector<libstatsd::Report>>(&fetched)));
  }

 private:
  libstatsd::StatsdCollection mCollection;
};

std::unique_ptr<StatsManager> refuse(const char* message) {
  __android_log_print(ANDROID_LOG_ERROR, kStatsTag, "%s", message);
  return nullptr;
}

const char* publishFailure(PublishStatus status) {
  switch (status) {
    case PublishStatus::FailedToReachService:
      return "Failed to publish configuration to statsd due to FailedToReachService\n";
    case PublishStatus::ConfigurationFailure:
      return "Failed to publish configuration to statsd due to ConfigurationFailure\n";
    default:
      return "Failed to publish configuration to statsd due to an unknown error\n";
  }
}

}  // namespace

StatsManagerBuilder& StatsManagerBuilder::setConfigId(int64_t configId) {
  mConfigId = configId;
  return *this;
}

StatsManagerBuilder& StatsManagerBuilder::addAtomId(int32_t atomId) {
  mAtomIds.push_back(atomId);
  return *this;
}

StatsManagerBuilder& StatsManagerBuilder::addAllowedLogSource(std::string source) {
  mAllowedLogSources.push_back(std::move(source));
  return *this;
}

StatsManagerBuilder& StatsManagerBuilder::setUid(int32_t uid) {
  mUid = uid;
  return *this;
}

std::unique_ptr<StatsManager> StatsManagerBuilder::build() && {
  if (mAtomIds.empty()) return refuse("Failed to build stats manager with empty atoms\n");
  libstatsd::StatsdConfiguration configuration;
  for (const int32_t atomId : mAtomIds) {
    if (!configuration.addEventAtomId(atomId)) return refuse("Failed to add atom to configuration\n");
  }
  if (mAllowedLogSources.empty()) return refuse("Failed to build stats manager with empty sources\n");
  for (const std::string& source : mAllowedLogSources) configuration.addAllowedLogSource(source);
  if (mConfigId < 1) return refuse("Failed to build stats manager with no config id\n");
  if (mUid < 1) return refuse("Failed to build stats manager with no uid\n");

  const auto configId = static_cast<int32_t>(mConfigId);  // the type in statsd's interface
  const PublishStatus status = configuration.publishConfigurationBlocked(configId, mUid);
  if (status != PublishStatus::Success) return refuse(publishFailure(status));
  libstatsd::StatsdCollection collection;
  collection.addConfiguration(configId, mUid);
  return std::make_unique<StatsManager>(std::make_unique<DefaultlibstatsdWrapper>(std::move(collection)));
}

}  // namespace Torv::OS::Diagnostics
