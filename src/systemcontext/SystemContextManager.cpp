#include "systemcontext/SystemContextManager.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include <android/log.h>
#include <osutils/Properties.h>

#include "base/StringMap.h"
#include "configuration/ConfigurationChain.h"
#include "sysprop/SharedOsServicesProperties.h"
#include "systemcontext/ContextKeys.h"

namespace Torv::OS::Diagnostics {

using Base::StringMap;

namespace {

// The one chain of the process, built by the first caller.
std::shared_ptr<Torv::OverridableConfiguration> processConfiguration() {
  static const std::shared_ptr<Torv::OverridableConfiguration> configuration =
      Torv::buildConfigurationChain();
  return configuration;
}

// Returns null if correlation is off or no collector can be made.
std::unique_ptr<SystemStateCollectorManager> makeCollectorManager() {
  namespace flags = pellux::sysprop::SharedOsServicesProperties;
  if (!flags::enable_diagnostics_collector_correlation().value_or(false)) {
    __android_log_print(ANDROID_LOG_INFO, nullptr, "System state collector manager disabled via ADC\n");
    return nullptr;
  }
  auto manager = SystemStateCollectorManager::makeDefaultManager();
  if (manager == nullptr) {
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "Failed to create system state collector manager\n");
  }
  return manager;
}

void addTag(StringMap& context, const char* key, StringMap& tags, const char* tag) {
  if (const auto found = tags.find(tag); found != tags.end()) context[key] = std::move(found->second);
}

void addSetting(StringMap& context, const char* key, const Torv::IConfiguration& configuration,
                const char* setting) {
  std::string value = configuration.getString(setting);
  if (!value.empty()) context[key] = std::move(value);
}

template <typename Set>
void splitTags(std::string_view rest, Set& flags, StringMap& values) {
  while (!rest.empty()) {
    const std::string_view tag = rest.substr(0, rest.find(','));
    rest.remove_prefix(std::min(tag.size() + 1, rest.size()));
    const size_t colon = tag.find(':');
    if (colon == std::string_view::npos) {
      if (!tag.empty()) flags.emplace(tag);
    } else if (colon > 0) {
      values[std::string(tag.substr(0, colon))] = tag.substr(colon + 1);
    }
  }
}

}  // namespace

std::unique_ptr<SystemContextManager> SystemContextManager::makeDefaultManager() {
  auto configuration = processConfiguration();  // first, because it may end the process
  return std::make_unique<SystemContextManager>(std::move(configuration), makeCollectorManager());
}

SystemContextManager::SystemContextManager(std::shared_ptr<Torv::OverridableConfiguration> configuration,
                                           std::unique_ptr<SystemStateCollectorManager> collectorManager)
    : mConfiguration(std::move(configuration)), mCollectorManager(std::move(collectorManager)) {}

StringMap SystemContextManager::getSystemContext() {
  std::string tags = getRawBuildTags();
  StringMap context;
  context[ContextKeys::kBuildFingerprint] = getRawBuildFingerprint();
  context[ContextKeys::kBuildTags] = tags;

  std::unordered_set<std::string> flags;
  StringMap values;
  parseBuildTags(std::move(tags), flags, values);
  addTag(context, ContextKeys::kDiffNumber, values, ContextKeys::kDiffNumberTag);
  addTag(context, ContextKeys::kDiffVersion, values, ContextKeys::kDiffVersionTag);
  addTag(context, ContextKeys::kCiId, values, ContextKeys::kCiIdTag);

  addSetting(context, ContextKeys::kCiSessionContext, *mConfiguration, ContextKeys::kSessionContextSetting);
  addSetting(context, ContextKeys::kCiTestContext, *mConfiguration, ContextKeys::kTestContextSetting);
  if (mCollectorManager != nullptr) addHistories(context);
  return context;
}

void SystemContextManager::startSystemStateCollectorThread() {
  if (mCollectorManager != nullptr) mCollectorManager->startCollectorThread();
}

void SystemContextManager::stopSystemStateCollectorThread() {
  if (mCollectorManager != nullptr) mCollectorManager->stopCollectorThread();
}

std::string SystemContextManager::getRawBuildTags() {
  return Torv::Utils::getSystemProperty(ContextKeys::kBuildTagsProperty);
}

std::string SystemContextManager::getRawBuildFingerprint() {
  return Torv::Utils::getSystemProperty(ContextKeys::kBuildFingerprintProperty);
}

// NOLINTBEGIN(performance-unnecessary-value-param): the platform's signatures take the tags by value
bool SystemContextManager::parseBuildTags(std::string tags, std::unordered_set<std::string>& flags,
                                          StringMap& values) {
  splitTags(tags, flags, values);
  return true;
}

bool SystemContextManager::parseBuildTags(std::string tags, std::set<std::string>& flags, StringMap& values) {
  splitTags(tags, flags, values);
  return true;
}
// NOLINTEND(performance-unnecessary-value-param)

void SystemContextManager::addHistories(StringMap& context) {
  const auto histories = mCollectorManager->dumpSystemStateHistory();
  for (const auto& [name, report] : *histories) {
    __android_log_print(ANDROID_LOG_DEBUG, nullptr, "System state history: %s, report size %zd", name.c_str(),
                        report.size());
  }
  context.merge(*histories);  // keeps an entry that is already there
}

}  // namespace Torv::OS::Diagnostics
